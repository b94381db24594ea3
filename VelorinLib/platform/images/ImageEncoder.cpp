#include "platform/images/ImageEncoder.h"

#include <array>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>

// After <cstdio>, which it needs and does not include.
#include <jpeglib.h>

namespace velorin {
namespace {

/// libjpeg's errors leave it by longjmp: everything with a destructor is a member.
class JpegWriter {
 public:
  JpegWriter() {
    _jpeg.err = ::jpeg_std_error(&_errors);
    _errors.error_exit = [](j_common_ptr jpeg) {
      auto& self = *static_cast<JpegWriter*>(jpeg->client_data);
      (*jpeg->err->format_message)(jpeg, self._message.data());
      std::longjmp(self._failed, 1);
    };
    _errors.emit_message = [](j_common_ptr, int) {};
    _jpeg.client_data = this;
  }
  ~JpegWriter() {
    ::jpeg_destroy_compress(&_jpeg);
    std::free(_bytes);
  }
  JpegWriter(const JpegWriter&) = delete;
  JpegWriter& operator=(const JpegWriter&) = delete;

  Result<std::vector<std::uint8_t>, ImageError> write(const Bitmap& image, int quality) {
    if (!compress(image, quality)) {
      return ImageError{fmt::format("cannot encode the picture: {}", _message.data())};
    }
    return std::vector<std::uint8_t>(_bytes, _bytes + _size);
  }

 private:
  bool compress(const Bitmap& image, int quality) {
    if (setjmp(_failed) != 0) return false;
    ::jpeg_create_compress(&_jpeg);
    ::jpeg_mem_dest(&_jpeg, &_bytes, &_size);
    _jpeg.image_width = static_cast<JDIMENSION>(image.width);
    _jpeg.image_height = static_cast<JDIMENSION>(image.height);
    _jpeg.input_components = static_cast<int>(Bitmap::kChannels);
    _jpeg.in_color_space = JCS_RGB;
    ::jpeg_set_defaults(&_jpeg);
    ::jpeg_set_quality(&_jpeg, quality, TRUE);
    ::jpeg_start_compress(&_jpeg, TRUE);
    while (_jpeg.next_scanline < _jpeg.image_height) {
      // The library does not write to it, though it says nothing of const.
      JSAMPROW row = const_cast<JSAMPROW>(image.row(static_cast<int>(_jpeg.next_scanline)));
      ::jpeg_write_scanlines(&_jpeg, &row, 1);
    }
    ::jpeg_finish_compress(&_jpeg);
    return true;
  }

  jpeg_compress_struct _jpeg{};
  jpeg_error_mgr _errors{};
  std::jmp_buf _failed{};
  std::array<char, JMSG_LENGTH_MAX> _message{};
  unsigned char* _bytes = nullptr;
  unsigned long _size = 0;
};

}  // namespace

Result<std::vector<std::uint8_t>, ImageError> encodeJpeg(const Bitmap& image, double quality) {
  JpegWriter writer;
  return writer.write(image, static_cast<int>(std::lround(std::clamp(quality, 0.0, 1.0) * 100)));
}

}  // namespace velorin
