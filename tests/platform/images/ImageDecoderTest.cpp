#include "platform/images/ImageDecoder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "platform/images/ImageEncoder.h"
#include "platform/images/ImageScaler.h"
#include "support/PictureFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using test::Bytes;
using Colors = test::JpegRecipe::Colors;
using Kind = test::PngRecipe::Kind;

struct Case {
  std::string name;
  Bytes bytes;
  bool isGrey = false;
  bool isCutUnseen = false;  ///< its format does not say how long it should be
};

std::vector<Case> everyKind(const Bitmap& image) {
  return {
      {"baseline", test::jpegOf(image)},
      {"progressive", test::jpegOf(image, {.progressive = true})},
      {"grey JPEG", test::jpegOf(image, {.colors = Colors::grey}), true},
      {"CMYK", test::jpegOf(image, {.colors = Colors::cmyk})},
      {"YCCK", test::jpegOf(image, {.colors = Colors::ycck, .progressive = true})},
      {"PNG", test::pngOf(image)},
      {"interlaced", test::pngOf(image, {.interlaced = true})},
      {"interlaced RGBA", test::pngOf(image, {.kind = Kind::rgba, .interlaced = true})},
      {"16 bits", test::pngOf(image, {.kind = Kind::rgb16})},
      {"grey PNG", test::pngOf(image, {.kind = Kind::grey}), true},
      {"palette", test::pngOf(image, {.kind = Kind::palette, .interlaced = true}), true},
      {"WebP", test::encodedBy("libwebp", image)},
      {"BMP", test::encodedBy("bmp", image)},
      {"TIFF", test::encodedBy("tiff", image)},
      {"GIF", test::encodedBy("gif", image), false, true},
  };
}

Bitmap greyed(Bitmap image) {
  for (std::size_t i = 0; i < image.pixels.size(); i += 3) {
    const int sum = image.pixels[i] + image.pixels[i + 1] + image.pixels[i + 2];
    std::fill_n(image.pixels.begin() + static_cast<std::ptrdiff_t>(i), 3,
                static_cast<std::uint8_t>(sum / 3));
  }
  return image;
}

TEST(ImageDecoder, EveryKindLooksAsItShouldAtEverySize) {
  const Bitmap image = test::gradient(301, 211);
  for (const Case& picture : everyKind(image)) {
    // 301 is one block too wide for a whole factor of 150; 40 makes JPEG use its own reduction.
    for (const int longerSide : {512, 301, 300, 150, 40, 1}) {
      SCOPED_TRACE(fmt::format("{} to {}", picture.name, longerSide));
      const auto decoded = decodeImage(picture.bytes, longerSide);
      ASSERT_TRUE(decoded) << decoded.error().reason;
      const ImageSize size = fittingSize({301, 211}, longerSide);
      EXPECT_EQ((ImageSize{decoded->width, decoded->height}), size);
      const Bitmap expected = test::gradient(size.width, size.height);
      const auto difference =
          test::differenceOf(decoded.value(), picture.isGrey ? greyed(expected) : expected);
      // A GIF has few colours, and one pixel stands for a whole gradient.
      const bool isCoarse = picture.name == "GIF" || size.width < 40;
      EXPECT_LE(difference.mean, isCoarse ? 130 : 5);
    }
  }
}

TEST(ImageDecoder, OfOnePixelAndOfALongLine) {
  // WebP knows no side above 16,383.
  for (const ImageSize size : {ImageSize{1, 1}, ImageSize{16'000, 1}, ImageSize{3, 16'000}}) {
    for (const Case& picture : everyKind(test::flat(size.width, size.height, 200, 200, 200))) {
      SCOPED_TRACE(fmt::format("{} {}x{}", picture.name, size.width, size.height));
      const auto decoded = decodeImage(picture.bytes, 512);
      ASSERT_TRUE(decoded) << decoded.error().reason;
      EXPECT_EQ((ImageSize{decoded->width, decoded->height}), fittingSize(size, 512));
      EXPECT_NEAR(decoded->pixels.front(), 200, picture.name == "GIF" ? 20 : 8);
    }
  }
}

TEST(ImageDecoder, AlphaLiesOverWhite) {
  const Bitmap image = test::flat(9, 9, 100, 0, 250);
  struct {
    int alpha;
    std::uint8_t red, green, blue;
  } const cases[]{{255, 100, 0, 250}, {0, 255, 255, 255}, {51, 224, 204, 254}};
  for (const auto& c : cases) {
    for (const bool interlaced : {false, true}) {
      const auto decoded = decodeImage(
          test::pngOf(image, {.kind = Kind::rgba, .interlaced = interlaced, .alpha = c.alpha}), 9);
      ASSERT_TRUE(decoded);
      EXPECT_EQ(decoded.value(), test::flat(9, 9, c.red, c.green, c.blue)) << c.alpha;
    }
  }
}

TEST(ImageDecoder, TurnsAsTheCameraSays) {
  // The corner that is white when the first stored one is, and whether width and height swap.
  struct {
    int orientation;
    bool right, bottom, swapped;
  } const cases[]{{0, false, false, false}, {1, false, false, false}, {2, true, false, false},
                  {3, true, true, false},   {4, false, true, false},  {5, false, false, true},
                  {6, true, false, true},   {7, true, true, true},    {8, false, true, true},
                  {9, false, false, false}};
  Bitmap image = test::flat(64, 32, 0, 0, 0);
  for (int y = 0; y < 16; ++y) std::fill_n(image.row(y), 48, std::uint8_t{255});
  for (const auto& c : cases) {
    const auto decoded = decodeImage(test::jpegOf(image, {.orientation = c.orientation}), 64);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->width, c.swapped ? 32 : 64) << c.orientation;
    for (const bool right : {false, true}) {
      for (const bool bottom : {false, true}) {
        const int x = right ? decoded->width - 3 : 2;
        const int y = bottom ? decoded->height - 3 : 2;
        const bool isWhite = decoded->row(y)[3 * x] > 127;
        EXPECT_EQ(isWhite, right == c.right && bottom == c.bottom)
            << c.orientation << " at " << x << "," << y;
      }
    }
  }
}

std::string errorOf(const Bytes& bytes) {
  const auto decoded = decodeImage(bytes, 512);
  return decoded ? "none" : decoded.error().reason;
}

TEST(ImageDecoder, WhatIsCutShortIsNoPicture) {
  for (const Case& picture : everyKind(test::gradient(301, 211))) {
    if (picture.isCutUnseen) continue;
    for (const double part : {0.9, 0.5, 0.02}) {
      Bytes cut = picture.bytes;
      cut.resize(static_cast<std::size_t>(part * static_cast<double>(cut.size())));
      EXPECT_NE(errorOf(cut), "none") << picture.name << " at " << part;
    }
  }
  Bytes noEnd = test::jpegOf(test::gradient(301, 211));
  noEnd.resize(noEnd.size() - 2);
  EXPECT_EQ(errorOf(noEnd), "none") << "only the end marker is missing";
}

TEST(ImageDecoder, RefusesWhatItCannotBound) {
  Bytes progressive = test::jpegOf(test::gradient(16, 16), {.progressive = true});
  test::claimJpegSize(progressive, 20'000, 20'000);
  EXPECT_EQ(errorOf(progressive),
            "the picture needs 1200 MB to decode, more than the 256 MB allowed");
  Bytes baseline = test::jpegOf(test::gradient(16, 16));
  test::claimJpegSize(baseline, 65'000, 65'000);
  EXPECT_EQ(errorOf(baseline), "the picture has too many pixels");
  test::claimJpegSize(baseline, 20'000, 20'000);
  baseline.resize(baseline.size() - 2);
  EXPECT_EQ(errorOf(baseline), "the picture is cut short");
  Bytes bitmap = test::encodedBy("bmp", test::gradient(16, 16));
  bitmap[20] = bitmap[24] = 1;  // 65,552 by 65,552
  EXPECT_NE(errorOf(bitmap), "none");
  EXPECT_EQ(errorOf({}), "not a picture of a known format");
  EXPECT_EQ(errorOf({'R', 'I', 'F', 'F'}), "not a picture of a known format");
  EXPECT_EQ(errorOf({'G', 'I', 'F', '8'}).substr(0, 22), "not a readable picture");
}

TEST(ImageDecoder, FilesOnlyAndOfABoundedSize) {
  const test::TemporaryFolder folder;
  const auto errorOfFile = [&](const char* name) {
    const auto decoded = decodeImageFile((folder / name).string(), 512);
    return decoded ? std::string("none") : decoded.error().reason;
  };
  test::writeBytes((folder / "photo.png").string(), test::jpegOf(test::gradient(99, 99)));
  ASSERT_EQ(::mkfifo((folder / "pipe.jpg").c_str(), 0600), 0);
  std::ofstream(folder / "huge.jpg").put('\xff');
  std::filesystem::resize_file(folder / "huge.jpg", kMaxPictureFileBytes + 1);
  EXPECT_EQ(errorOfFile("photo.png"), "none");
  EXPECT_EQ(errorOfFile("pipe.jpg"), "not a file");
  EXPECT_EQ(errorOfFile("."), "not a file");
  EXPECT_EQ(errorOfFile("huge.jpg"), "the file is larger than 200 MB");
  EXPECT_EQ(errorOfFile("absent.jpg"), "cannot open: No such file or directory");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
std::uint64_t statusBytes(const char* key) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word != key) continue;
    std::uint64_t kilobytes = 0;
    status >> kilobytes;
    return kilobytes * 1024;
  }
  return 0;
}

TEST(ImageDecoder, FourHundredMegapixelsInLittleMemory) {
  const test::TemporaryFolder folder;
  const std::string jpeg = (folder / "large.jpg").string();
  const std::string png = (folder / "large.png").string();
  test::writeLargeJpeg(jpeg, 20'000, 20'000);
  test::writeLargePng(png, 20'000, 20'000);
  for (const std::string& path : {jpeg, png}) {
    std::ofstream("/proc/self/clear_refs") << 5;  // the peak starts anew
    const std::uint64_t before = statusBytes("VmRSS:");
    const auto decoded = decodeImageFile(path, 512);
    const std::uint64_t peak = statusBytes("VmHWM:");
    ASSERT_TRUE(decoded) << decoded.error().reason;
    EXPECT_EQ((ImageSize{decoded->width, decoded->height}), (ImageSize{512, 512}));
    EXPECT_LT(decoded->row(100)[0], 60);
    EXPECT_GT(decoded->row(411)[0], 195);
    EXPECT_LT(peak - before, 10'000'000U) << path;
  }
}
#endif

TEST(ImageScaler, KeepsColoursAndDetail) {
  EXPECT_EQ(fittingSize({3000, 2000}, 512), (ImageSize{512, 341}));
  EXPECT_EQ(fittingSize({512, 1}, 512), (ImageSize{512, 1}));
  EXPECT_EQ(fittingSize({1, 9000}, 512), (ImageSize{1, 512}));
  for (const ImageSize size : {ImageSize{32, 32}, ImageSize{700, 350}, ImageSize{1, 1}}) {
    const auto same = scaled(test::flat(1000, 600, 255, 0, 77), size);
    ASSERT_TRUE(same);
    EXPECT_LE(
        test::differenceOf(same.value(), test::flat(size.width, size.height, 255, 0, 77)).largest,
        1);
  }
  const auto smooth = scaled(test::gradient(1000, 1000), {613, 613});
  ASSERT_TRUE(smooth);
  EXPECT_LE(test::differenceOf(smooth.value(), test::gradient(613, 613)).largest, 3);
}

TEST(ImageEncoder, WritesWhatTheDecoderReads) {
  const Bitmap image = test::gradient(512, 300);
  const auto jpeg = encodeJpeg(image, 0.85);
  ASSERT_TRUE(jpeg);
  const auto back = decodeImage(jpeg.value(), 512);
  ASSERT_TRUE(back);
  EXPECT_LT(test::differenceOf(back.value(), image).mean, 3);
  EXPECT_FALSE(encodeJpeg(Bitmap{}, 0.85));
}

}  // namespace
}  // namespace velorin
