#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstdio>
#include <string>
#include <vector>

// After <cstdio>, which it needs and does not include.
#include <jerror.h>
#include <jpeglib.h>

#include "platform/images/BoxReducer.h"
#include "platform/images/ImageDecoder.h"
#include "platform/images/Orientation.h"
#include "platform/images/PictureFormats.h"

namespace velorin::images {
namespace {

/// Encoders write about ten; a file that goes on and on is made to keep us busy.
constexpr int kMaxScans = 200;

/// libjpeg over a PictureSource. Its errors leave it by longjmp: everything with a destructor is
/// therefore a member or lives outside guarded().
class JpegReader {
 public:
  explicit JpegReader(PictureSource& source) : _in(source) {
    _jpeg.err = ::jpeg_std_error(&_errors);
    _errors.error_exit = [](j_common_ptr jpeg) {
      JpegReader& self = of(jpeg);
      (*jpeg->err->format_message)(jpeg, self._message.data());
      std::longjmp(self._failed, 1);
    };
    _errors.emit_message = [](j_common_ptr jpeg, int level) {
      if (level < 0 && jpeg->err->msg_code == JWRN_HIT_MARKER) of(jpeg)._dataMissing = true;
    };
    _jpeg.client_data = this;
  }
  ~JpegReader() { ::jpeg_destroy_decompress(&_jpeg); }
  JpegReader(const JpegReader&) = delete;
  JpegReader& operator=(const JpegReader&) = delete;

  DecodeResult decode(int longerSide);

 private:
  /// What work() does must not make an object that has a destructor.
  template <class Work>
  bool guarded(Work work) {
    if (setjmp(_failed) != 0) return false;
    work();
    return !isCutShort();
  }

  template <class Pointer>
  static JpegReader& of(Pointer jpeg) {
    return *static_cast<JpegReader*>(jpeg->client_data);
  }

  // An end that comes too early, but after all that is needed, harms nobody.
  bool isCutShort() const { return _ended && _dataMissing; }
  ImageError failure() const {
    if (_ended) return {kCutShort};
    return {fmt::format("not a readable JPEG: {}", _message.data())};
  }

  bool readHeader();
  std::uint64_t coefficientBytes() const;
  void chooseScale(int longerSide);
  void convertCmyk();

  void connectSource();
  static boolean fill(j_decompress_ptr jpeg);
  static void skip(j_decompress_ptr jpeg, long count);
  static int nextByte(j_decompress_ptr jpeg);
  static boolean takeExif(j_decompress_ptr jpeg);

  PictureSource& _in;
  jpeg_decompress_struct _jpeg{};
  jpeg_error_mgr _errors{};
  jpeg_source_mgr _source{};
  jpeg_progress_mgr _progress{};
  std::jmp_buf _failed{};
  std::array<char, JMSG_LENGTH_MAX> _message{};
  bool _ended = false;        ///< the source had no more bytes
  bool _dataMissing = false;  ///< a marker stood where there should be picture data
  std::array<JOCTET, 65536> _buffer{};
  std::array<std::uint8_t, 4096> _exif{};  ///< the beginning, where the orientation stands
  std::size_t _exifLength = 0;
  std::vector<std::uint8_t> _row;
  std::vector<std::uint8_t> _rgb;
};

boolean JpegReader::fill(j_decompress_ptr jpeg) {
  JpegReader& self = of(jpeg);
  std::size_t got = self._in.read(self._buffer.data(), self._buffer.size());
  if (got == 0) {
    self._ended = true;
    self._buffer[0] = 0xff;
    self._buffer[1] = JPEG_EOI;
    got = 2;
  }
  jpeg->src->next_input_byte = self._buffer.data();
  jpeg->src->bytes_in_buffer = got;
  return TRUE;
}

void JpegReader::skip(j_decompress_ptr jpeg, long count) {
  auto left = static_cast<std::size_t>(std::max(count, 0L));
  while (left > jpeg->src->bytes_in_buffer && !of(jpeg)._ended) {
    left -= jpeg->src->bytes_in_buffer;
    fill(jpeg);
  }
  left = std::min(left, jpeg->src->bytes_in_buffer);
  jpeg->src->next_input_byte += left;
  jpeg->src->bytes_in_buffer -= left;
}

int JpegReader::nextByte(j_decompress_ptr jpeg) {
  if (jpeg->src->bytes_in_buffer == 0) fill(jpeg);
  --jpeg->src->bytes_in_buffer;
  return *jpeg->src->next_input_byte++;
}

// Not jpeg_save_markers: it would keep every segment of a file that is nothing but segments.
boolean JpegReader::takeExif(j_decompress_ptr jpeg) {
  JpegReader& self = of(jpeg);
  const int high = nextByte(jpeg);
  int left = high << 8 | nextByte(jpeg);
  left -= 2;
  if (self._exifLength == 0) {
    while (left > 0 && self._exifLength < self._exif.size()) {
      self._exif[self._exifLength++] = static_cast<std::uint8_t>(nextByte(jpeg));
      --left;
    }
    // The same kind of segment may hold other things than Exif.
    if (self._exif[0] != 'E') self._exifLength = 0;
  }
  skip(jpeg, left);
  return TRUE;
}

void JpegReader::connectSource() {
  _source.init_source = [](j_decompress_ptr) {};
  _source.fill_input_buffer = fill;
  _source.skip_input_data = skip;
  _source.resync_to_restart = ::jpeg_resync_to_restart;
  _source.term_source = [](j_decompress_ptr) {};
  _jpeg.src = &_source;
  ::jpeg_set_marker_processor(&_jpeg, JPEG_APP0 + 1, takeExif);
  _progress.progress_monitor = [](j_common_ptr jpeg) {
    if (!jpeg->is_decompressor) return;
    if (reinterpret_cast<j_decompress_ptr>(jpeg)->input_scan_number <= kMaxScans) return;
    JpegReader& self = of(jpeg);
    std::snprintf(self._message.data(), self._message.size(), "too many scans");
    std::longjmp(self._failed, 1);
  };
  _jpeg.progress = &_progress;
}

bool JpegReader::readHeader() {
  return guarded([this] {
    // Clears the structure except for the error manager and the client data.
    ::jpeg_create_decompress(&_jpeg);
    connectSource();
    _jpeg.mem->max_memory_to_use = static_cast<long>(kMaxPictureMemory);
    ::jpeg_read_header(&_jpeg, TRUE);
  });
}

/// What libjpeg keeps of a picture whose rows are spread over several scans.
std::uint64_t JpegReader::coefficientBytes() const {
  std::uint64_t blocks = 0;
  for (int i = 0; i < _jpeg.num_components; ++i) {
    const jpeg_component_info& component = _jpeg.comp_info[i];
    blocks += std::uint64_t{component.width_in_blocks} * component.height_in_blocks;
  }
  return blocks * DCTSIZE2 * sizeof(JCOEF);
}

void JpegReader::chooseScale(int longerSide) {
  const auto longer = std::max(_jpeg.image_width, _jpeg.image_height);
  // Only powers of two: the others are computed without vectors, which costs more than they spare.
  unsigned divisor = 8;
  while (divisor > 1 && (longer + divisor - 1) / divisor < static_cast<unsigned>(longerSide)) {
    divisor /= 2;
  }
  _jpeg.scale_num = 1;
  _jpeg.scale_denom = divisor;
  const bool isCmyk = _jpeg.jpeg_color_space == JCS_CMYK || _jpeg.jpeg_color_space == JCS_YCCK;
  _jpeg.out_color_space = isCmyk ? JCS_CMYK : JCS_RGB;
  // It only guesses at what a broken progressive file lacks.
  _jpeg.do_block_smoothing = FALSE;
}

/// Ink on white paper. Adobe's files hold how much of each ink is missing.
void JpegReader::convertCmyk() {
  const unsigned flip = _jpeg.saw_Adobe_marker ? 0 : 255;
  const std::uint8_t* in = _row.data();
  for (std::size_t i = 0; i < _rgb.size(); i += Bitmap::kChannels, in += 4) {
    const unsigned black = in[3] ^ flip;
    for (std::size_t channel = 0; channel < Bitmap::kChannels; ++channel) {
      _rgb[i + channel] = static_cast<std::uint8_t>(((in[channel] ^ flip) * black + 127) / 255);
    }
  }
}

DecodeResult JpegReader::decode(int longerSide) {
  if (!readHeader()) return failure();
  const ImageSize original{static_cast<int>(_jpeg.image_width),
                           static_cast<int>(_jpeg.image_height)};
  if (std::uint64_t{_jpeg.image_width} * _jpeg.image_height > kMaxPicturePixels) {
    return ImageError{"the picture has too many pixels"};
  }
  const std::uint64_t needed = ::jpeg_has_multiple_scans(&_jpeg) ? coefficientBytes() : 0;
  if (needed > kMaxPictureMemory) return needsTooMuch(needed);
  const auto turn = waitForTurn(needed);

  if (!guarded([&] {
        chooseScale(longerSide);
        ::jpeg_start_decompress(&_jpeg);
      })) {
    return failure();
  }
  const auto width = static_cast<int>(_jpeg.output_width);
  const auto height = static_cast<int>(_jpeg.output_height);
  const int factor = reduction(std::max(width, height), longerSide);
  BoxReducer reducer(width, height, factor, factor);
  const bool isCmyk = _jpeg.out_color_space == JCS_CMYK;
  _rgb.resize(static_cast<std::size_t>(width) * Bitmap::kChannels);
  _row.resize(isCmyk ? static_cast<std::size_t>(width) * 4 : _rgb.size());
  while (reducer.rowsTaken() < height) {
    if (!guarded([this] {
          JSAMPROW row = _row.data();
          ::jpeg_read_scanlines(&_jpeg, &row, 1);
        })) {
      return failure();
    }
    if (isCmyk) convertCmyk();
    reducer.addRow(isCmyk ? _rgb.data() : _row.data());
  }
  return ReducedPicture{std::move(reducer).take(), original,
                        orientationOf({_exif.data(), _exifLength})};
}

}  // namespace

DecodeResult decodeJpeg(PictureSource& source, int longerSide) {
  // It holds buffers that are large for the stack of a worker.
  const auto reader = std::make_unique<JpegReader>(source);
  return reader->decode(longerSide);
}

}  // namespace velorin::images
