// music_tree COUNT FOLDER
//
// Writes so many small tagged FLAC, MP3 and M4A files into a new folder.
#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>

#include "support/MusicTree.h"

int main(int count, char** arguments) {
  std::size_t files = 0;
  const char* const number = count == 3 ? arguments[1] : "";
  const char* const end = number + std::strlen(number);
  const auto [stopped, error] = std::from_chars(number, end, files);
  if (error != std::errc() || stopped != end || files < 10 || files > 10'000'000) {
    std::fputs("usage: music_tree COUNT FOLDER\n", stderr);
    return 2;
  }
  try {
    if (std::filesystem::exists(arguments[2])) {
      std::fprintf(stderr, "music_tree: %s exists already\n", arguments[2]);
      return 1;
    }
    velorin::test::writeMusicTree(files, arguments[2], [&](std::size_t written) {
      std::fprintf(stderr, "\r%zu of %zu files", written, files);
    });
    std::fputs("\n", stderr);
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "music_tree: %s\n", failure.what());
    return 1;
  }
}
