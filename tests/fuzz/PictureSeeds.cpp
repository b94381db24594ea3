// Writes a small picture of every kind into a folder.
#include <filesystem>

#include "support/PictureFixture.h"

int main(int argc, char** argv) {
  using namespace velorin::test;
  using Colors = JpegRecipe::Colors;
  using Kind = PngRecipe::Kind;
  if (argc != 2) return 2;
  const std::filesystem::path folder = argv[1];
  std::filesystem::create_directories(folder);
  const auto image = gradient(41, 23);
  const auto write = [&](const char* name, const Bytes& bytes) {
    writeBytes((folder / name).string(), bytes);
  };
  write("baseline", jpegOf(image, {.orientation = 6}));
  write("progressive", jpegOf(image, {.colors = Colors::ycck, .progressive = true}));
  write("cmyk", jpegOf(image, {.colors = Colors::cmyk}));
  write("grey", jpegOf(image, {.colors = Colors::grey}));
  write("rgba", pngOf(image, {.kind = Kind::rgba, .interlaced = true, .alpha = 99}));
  write("rgb16", pngOf(image, {.kind = Kind::rgb16}));
  write("palette", pngOf(image, {.kind = Kind::palette, .interlaced = true}));
  for (const char* encoder : {"libwebp", "bmp", "tiff", "gif"}) {
    write(encoder, encodedBy(encoder, image));
  }
  return 0;
}
