#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <vector>

#include "platform/images/Blending.h"
#include "platform/images/BoxReducer.h"
#include "platform/images/ImageDecoder.h"
#include "platform/images/PictureFormats.h"

namespace velorin::images {
namespace {

constexpr png_uint_32 kMaxSide = 100'000;

/// libpng over a PictureSource. Its errors leave it by longjmp: everything with a destructor is
/// therefore a member or lives outside guarded().
class PngReader {
 public:
  explicit PngReader(PictureSource& source) : _in(source) {}
  ~PngReader() { ::png_destroy_read_struct(&_png, &_info, nullptr); }
  PngReader(const PngReader&) = delete;
  PngReader& operator=(const PngReader&) = delete;

  DecodeResult decode(int longerSide);

 private:
  /// What work() does must not make an object that has a destructor.
  template <class Work>
  bool guarded(Work work) {
    if (setjmp(_failed) != 0) return false;
    work();
    return true;
  }

  ImageError failure() const {
    if (_ended) return {kCutShort};
    return {fmt::format("not a readable PNG: {}", _message)};
  }

  bool readHeader();
  /// The next row in _row as RGB.
  bool readRow();
  bool readRows(BoxReducer& reducer);
  bool readPasses(PixelReducer& reducer);

  PictureSource& _in;
  png_structp _png = nullptr;
  png_infop _info = nullptr;
  std::jmp_buf _failed{};
  char _message[128] = {};
  bool _ended = false;
  bool _hasAlpha = false;
  std::vector<std::uint8_t> _row;
};

bool PngReader::readHeader() {
  const auto onError = [](png_structp png, png_const_charp message) {
    auto& self = *static_cast<PngReader*>(::png_get_error_ptr(png));
    std::snprintf(self._message, sizeof self._message, "%s", message);
    std::longjmp(self._failed, 1);
  };
  const auto onWarning = [](png_structp, png_const_charp) {};
  const auto read = [](png_structp png, png_bytep into, std::size_t size) {
    auto& self = *static_cast<PngReader*>(::png_get_io_ptr(png));
    if (self._in.read(into, size) == size) return;
    self._ended = true;
    ::png_error(png, kCutShort);
  };
  _png = ::png_create_read_struct(PNG_LIBPNG_VER_STRING, this, onError, onWarning);
  if (_png != nullptr) _info = ::png_create_info_struct(_png);
  if (_info == nullptr) {
    std::snprintf(_message, sizeof _message, "not enough memory");
    return false;
  }
  return guarded([&] {
    ::png_set_read_fn(_png, this, read);
    ::png_set_user_limits(_png, kMaxSide, kMaxSide);
    // Texts and profiles may be of any size and number; nobody here reads them.
    ::png_set_keep_unknown_chunks(_png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
    ::png_read_info(_png, _info);
    ::png_set_expand(_png);
    ::png_set_scale_16(_png);
    ::png_set_gray_to_rgb(_png);
    ::png_read_update_info(_png, _info);
  });
}

bool PngReader::readRow() {
  if (!guarded([this] { ::png_read_row(_png, _row.data(), nullptr); })) return false;
  if (_hasAlpha) blendOverWhite(_row);
  return true;
}

bool PngReader::readRows(BoxReducer& reducer) {
  const auto height = static_cast<int>(::png_get_image_height(_png, _info));
  while (reducer.rowsTaken() < height) {
    if (!readRow()) return false;
    reducer.addRow(_row.data());
  }
  return true;
}

/// Each pass is a small picture of its own, whose pixels stand apart in the whole one.
bool PngReader::readPasses(PixelReducer& reducer) {
  const png_uint_32 width = ::png_get_image_width(_png, _info);
  const png_uint_32 height = ::png_get_image_height(_png, _info);
  for (int pass = 0; pass < PNG_INTERLACE_ADAM7_PASSES; ++pass) {
    const png_uint_32 columns = PNG_PASS_COLS(width, pass);
    const png_uint_32 rows = PNG_PASS_ROWS(height, pass);
    if (columns == 0) continue;
    for (png_uint_32 row = 0; row < rows; ++row) {
      if (!readRow()) return false;
      const auto y = static_cast<int>(PNG_ROW_FROM_PASS_ROW(row, pass));
      reducer.addPixels(y, PNG_PASS_START_COL(pass), 1 << PNG_PASS_COL_SHIFT(pass),
                        std::span(_row).first(columns * Bitmap::kChannels));
    }
  }
  return true;
}

DecodeResult PngReader::decode(int longerSide) {
  if (!readHeader()) return failure();
  const ImageSize size{static_cast<int>(::png_get_image_width(_png, _info)),
                       static_cast<int>(::png_get_image_height(_png, _info))};
  const auto pixels =
      static_cast<std::uint64_t>(size.width) * static_cast<std::uint64_t>(size.height);
  if (pixels > kMaxPicturePixels) return ImageError{"the picture has too many pixels"};
  _hasAlpha = ::png_get_channels(_png, _info) == 4;
  _row.resize(::png_get_rowbytes(_png, _info));

  const int factor = reduction(std::max(size.width, size.height), longerSide);
  if (::png_get_interlace_type(_png, _info) == PNG_INTERLACE_NONE) {
    BoxReducer reducer(size.width, size.height, factor, factor);
    if (!readRows(reducer)) return failure();
    return ReducedPicture{std::move(reducer).take(), size};
  }
  PixelReducer reducer(size.width, size.height, std::min(factor, PixelReducer::kMaxFactor));
  if (!readPasses(reducer)) return failure();
  return ReducedPicture{std::move(reducer).take(), size};
}

}  // namespace

DecodeResult decodePng(PictureSource& source, int longerSide) {
  PngReader reader(source);
  return reader.decode(longerSide);
}

}  // namespace velorin::images
