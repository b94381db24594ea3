#include "support/PictureFixture.h"

#include <fmt/format.h>
#include <png.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>

// After <cstdio>, which it needs and does not include.
#include <jpeglib.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

namespace velorin::test {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// Rows of a JPEG go to a file or to memory; libjpeg's own error handler ends the test program.
template <class FillRow>
void compress(jpeg_compress_struct& jpeg, int components, J_COLOR_SPACE colors,
              const JpegRecipe& recipe, const FillRow& fillRow) {
  jpeg.input_components = components;
  jpeg.in_color_space = colors;
  ::jpeg_set_defaults(&jpeg);
  if (recipe.colors == JpegRecipe::Colors::ycck) ::jpeg_set_colorspace(&jpeg, JCS_YCCK);
  ::jpeg_set_quality(&jpeg, 95, TRUE);
  if (recipe.progressive) ::jpeg_simple_progression(&jpeg);
  ::jpeg_start_compress(&jpeg, TRUE);
  if (recipe.orientation != 0) {
    const auto value = static_cast<JOCTET>(recipe.orientation);
    const JOCTET exif[]{'E', 'x', 'i', 'f', 0, 0, 'M', 'M', 0, 42,    0, 0, 0, 8, 0, 1,
                        1,   18,  0,   3,   0, 0, 0,   1,   0, value, 0, 0, 0, 0, 0, 0};
    ::jpeg_write_marker(&jpeg, JPEG_APP0 + 1, exif, sizeof exif);
  }
  Bytes row(static_cast<std::size_t>(jpeg.image_width) * static_cast<std::size_t>(components));
  while (jpeg.next_scanline < jpeg.image_height) {
    fillRow(static_cast<int>(jpeg.next_scanline), row);
    JSAMPROW pointer = row.data();
    ::jpeg_write_scanlines(&jpeg, &pointer, 1);
  }
  ::jpeg_finish_compress(&jpeg);
  ::jpeg_destroy_compress(&jpeg);
}

void start(jpeg_compress_struct& jpeg, jpeg_error_mgr& errors, int width, int height) {
  jpeg.err = ::jpeg_std_error(&errors);
  ::jpeg_create_compress(&jpeg);
  jpeg.image_width = static_cast<JDIMENSION>(width);
  jpeg.image_height = static_cast<JDIMENSION>(height);
}

std::uint8_t greyOf(const std::uint8_t* pixel) {
  return static_cast<std::uint8_t>((pixel[0] + pixel[1] + pixel[2]) / 3);
}

}  // namespace

Bitmap gradient(int width, int height) {
  Bitmap image = Bitmap::ofSize(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      std::uint8_t* pixel = image.row(y) + 3 * x;
      pixel[0] = static_cast<std::uint8_t>(255 * (2 * x + 1) / (2 * width));
      pixel[1] = static_cast<std::uint8_t>(255 * (2 * y + 1) / (2 * height));
      pixel[2] = static_cast<std::uint8_t>(255 - (pixel[0] + pixel[1]) / 2);
    }
  }
  return image;
}

Bitmap flat(int width, int height, std::uint8_t red, std::uint8_t green, std::uint8_t blue) {
  Bitmap image = Bitmap::ofSize(width, height);
  for (std::size_t i = 0; i < image.pixels.size(); i += 3) {
    image.pixels[i] = red;
    image.pixels[i + 1] = green;
    image.pixels[i + 2] = blue;
  }
  return image;
}

Difference differenceOf(const Bitmap& a, const Bitmap& b) {
  if (a.width != b.width || a.height != b.height) return {256, 256};
  Difference result;
  for (std::size_t i = 0; i < a.pixels.size(); ++i) {
    const int distance = std::abs(a.pixels[i] - b.pixels[i]);
    result.largest = std::max(result.largest, distance);
    result.mean += distance;
  }
  result.mean /= static_cast<double>(a.pixels.size());
  return result;
}

Bytes jpegOf(const Bitmap& image, const JpegRecipe& recipe) {
  jpeg_compress_struct jpeg{};
  jpeg_error_mgr errors{};
  unsigned char* out = nullptr;
  unsigned long size = 0;
  start(jpeg, errors, image.width, image.height);
  ::jpeg_mem_dest(&jpeg, &out, &size);
  switch (recipe.colors) {
    case JpegRecipe::Colors::yCbCr:
      compress(jpeg, 3, JCS_RGB, recipe, [&](int y, Bytes& row) {
        row.assign(image.row(y), image.row(y) + image.rowBytes());
      });
      break;
    case JpegRecipe::Colors::grey:
      compress(jpeg, 1, JCS_GRAYSCALE, recipe, [&](int y, Bytes& row) {
        for (std::size_t x = 0; x < row.size(); ++x) row[x] = greyOf(image.row(y) + 3 * x);
      });
      break;
    default:
      // As Adobe writes it: 255 is no ink. The black is that of the lightest channel.
      compress(jpeg, 4, JCS_CMYK, recipe, [&](int y, Bytes& row) {
        for (std::size_t x = 0; x < row.size() / 4; ++x) {
          const std::uint8_t* pixel = image.row(y) + 3 * x;
          const int key = std::max({pixel[0], pixel[1], pixel[2], std::uint8_t{1}});
          for (std::size_t i = 0; i < 3; ++i) {
            row[4 * x + i] = static_cast<std::uint8_t>(255 * pixel[i] / key);
          }
          row[4 * x + 3] = static_cast<std::uint8_t>(key);
        }
      });
  }
  Bytes bytes(out, out + size);
  std::free(out);
  return bytes;
}

Bytes pngOf(const Bitmap& image, const PngRecipe& recipe) {
  using Kind = PngRecipe::Kind;
  Bytes bytes;
  png_structp png = ::png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = ::png_create_info_struct(png);
  const auto append = [](png_structp writer, png_bytep data, std::size_t length) {
    auto& out = *static_cast<Bytes*>(::png_get_io_ptr(writer));
    out.insert(out.end(), data, data + length);
  };
  ::png_set_write_fn(png, &bytes, append, nullptr);
  int color = PNG_COLOR_TYPE_RGB;
  if (recipe.kind == Kind::rgba) color = PNG_COLOR_TYPE_RGB_ALPHA;
  if (recipe.kind == Kind::grey) color = PNG_COLOR_TYPE_GRAY;
  if (recipe.kind == Kind::palette) color = PNG_COLOR_TYPE_PALETTE;
  ::png_set_IHDR(png, info, static_cast<png_uint_32>(image.width),
                 static_cast<png_uint_32>(image.height), recipe.kind == Kind::rgb16 ? 16 : 8, color,
                 recipe.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, 0, 0);
  std::vector<png_color> palette(256);
  for (unsigned i = 0; i < 256; ++i) {
    const auto level = static_cast<png_byte>(i);
    palette[i] = {level, level, level};
  }
  if (recipe.kind == Kind::palette) ::png_set_PLTE(png, info, palette.data(), 256);
  std::vector<Bytes> rows(static_cast<std::size_t>(image.height));
  std::vector<png_bytep> pointers;
  for (int y = 0; y < image.height; ++y) {
    Bytes& row = rows[static_cast<std::size_t>(y)];
    for (int x = 0; x < image.width; ++x) {
      const std::uint8_t* pixel = image.row(y) + 3 * x;
      if (recipe.kind == Kind::grey || recipe.kind == Kind::palette) {
        row.push_back(greyOf(pixel));
        continue;
      }
      for (int i = 0; i < 3; ++i) {
        row.push_back(pixel[i]);
        if (recipe.kind == Kind::rgb16) row.push_back(pixel[i]);
      }
      if (recipe.kind == Kind::rgba) row.push_back(static_cast<std::uint8_t>(recipe.alpha));
    }
    pointers.push_back(row.data());
  }
  ::png_write_info(png, info);
  ::png_write_image(png, pointers.data());
  ::png_write_end(png, info);
  ::png_destroy_write_struct(&png, &info);
  return bytes;
}

Bytes encodedBy(const char* encoder, const Bitmap& image) {
  const AVCodec* codec = ::avcodec_find_encoder_by_name(encoder);
  if (codec == nullptr) throw std::runtime_error(fmt::format("FFmpeg has no {}", encoder));
  AVCodecContext* context = ::avcodec_alloc_context3(codec);
  context->log_level_offset = 128;
  context->width = image.width;
  context->height = image.height;
  context->time_base = {1, 25};
  context->pix_fmt = codec->pix_fmts[0];
  AVFrame* frame = ::av_frame_alloc();
  frame->width = image.width;
  frame->height = image.height;
  frame->format = context->pix_fmt;
  ::av_frame_get_buffer(frame, 64);
  SwsContext* scaler =
      ::sws_getContext(image.width, image.height, AV_PIX_FMT_RGB24, image.width, image.height,
                       context->pix_fmt, SWS_BICUBIC, nullptr, nullptr, nullptr);
  const std::uint8_t* const planes[]{image.pixels.data()};
  const int strides[]{static_cast<int>(image.rowBytes())};
  ::sws_scale(scaler, planes, strides, 0, image.height, frame->data, frame->linesize);
  AVPacket* packet = ::av_packet_alloc();
  Bytes bytes;
  if (::avcodec_open2(context, codec, nullptr) >= 0 && ::avcodec_send_frame(context, frame) >= 0 &&
      ::avcodec_send_frame(context, nullptr) >= 0 &&
      ::avcodec_receive_packet(context, packet) >= 0) {
    bytes.assign(packet->data, packet->data + packet->size);
  }
  ::av_packet_free(&packet);
  ::sws_freeContext(scaler);
  ::av_frame_free(&frame);
  ::avcodec_free_context(&context);
  if (bytes.empty()) throw std::runtime_error(fmt::format("{} encodes nothing", encoder));
  return bytes;
}

void writeLargeJpeg(const std::string& path, int width, int height) {
  const File file(std::fopen(path.c_str(), "wb"), &std::fclose);
  jpeg_compress_struct jpeg{};
  jpeg_error_mgr errors{};
  start(jpeg, errors, width, height);
  ::jpeg_stdio_dest(&jpeg, file.get());
  compress(jpeg, 1, JCS_GRAYSCALE, {}, [&](int y, Bytes& row) {
    std::ranges::fill(row, static_cast<std::uint8_t>(255 * std::int64_t{y} / height));
  });
}

void writeLargePng(const std::string& path, int width, int height) {
  const File file(std::fopen(path.c_str(), "wb"), &std::fclose);
  png_structp png = ::png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = ::png_create_info_struct(png);
  ::png_init_io(png, file.get());
  ::png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 1,
                 PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, 0, 0);
  ::png_write_info(png, info);
  Bytes row(static_cast<std::size_t>(width) / 8 + 1);
  for (int y = 0; y < height; ++y) {
    std::ranges::fill(row, static_cast<std::uint8_t>(y < height / 2 ? 0 : 255));
    ::png_write_row(png, row.data());
  }
  ::png_write_end(png, info);
  ::png_destroy_write_struct(&png, &info);
}

void claimJpegSize(Bytes& jpeg, int width, int height) {
  for (std::size_t i = 2; i + 9 < jpeg.size(); i += 2U + jpeg[i + 2] * 256U + jpeg[i + 3]) {
    if (jpeg[i + 1] != 0xc0 && jpeg[i + 1] != 0xc2) continue;
    jpeg[i + 5] = static_cast<std::uint8_t>(height >> 8);
    jpeg[i + 6] = static_cast<std::uint8_t>(height);
    jpeg[i + 7] = static_cast<std::uint8_t>(width >> 8);
    jpeg[i + 8] = static_cast<std::uint8_t>(width);
    return;
  }
  throw std::runtime_error("no frame header");
}

void writeBytes(const std::string& path, const Bytes& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

}  // namespace velorin::test
