// synthetic_library TRACKS FILE [--seed N]
//
// Writes a new library file of so many made-up tracks, which were added and heard up to now.
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>

#include "library/schema/Migrator.h"
#include "support/SyntheticLibrary.h"

namespace {

using namespace velorin;

struct Options {
  test::SyntheticSpec spec;
  std::filesystem::path file;
};

template <class Number>
bool parseNumber(const char* text, Number& number) {
  const char* end = text + std::strlen(text);
  const auto [stopped, error] = std::from_chars(text, end, number);
  return error == std::errc() && stopped == end;
}

std::optional<Options> parse(int count, char** arguments) {
  Options options;
  if (count < 3 || !parseNumber(arguments[1], options.spec.tracks)) return std::nullopt;
  if (options.spec.tracks < 10 || options.spec.tracks > 10'000'000) return std::nullopt;
  options.file = arguments[2];
  for (int i = 3; i < count; ++i) {
    if (std::strcmp(arguments[i], "--seed") != 0 || i + 1 == count ||
        !parseNumber(arguments[++i], options.spec.seed)) {
      return std::nullopt;
    }
  }
  options.spec.now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  return options;
}

void make(const Options& options) {
  const auto queue = std::make_shared<ConnectionQueue>(options.file);
  queue->withConnection([](sqlite::Connection& connection) { schema::migrate(connection); });
  const DatabaseHandle database(queue);
  test::SyntheticLibrary(options.spec).fill(database, [&](std::size_t done) {
    if (done % 10'000 == 0 || done == options.spec.tracks) {
      std::fprintf(stderr, "\r%zu of %zu tracks", done, options.spec.tracks);
    }
  });
  std::fprintf(stderr, ", history and playlists written\n");
}

}  // namespace

int main(int count, char** arguments) {
  const auto options = parse(count, arguments);
  if (!options) {
    std::fputs("usage: synthetic_library TRACKS FILE [--seed N]\n", stderr);
    return 2;
  }
  if (std::filesystem::exists(options->file)) {
    std::fprintf(stderr, "synthetic_library: %s exists already\n", options->file.c_str());
    return 1;
  }
  try {
    make(*options);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "synthetic_library: %s\n", error.what());
    return 1;
  }
}
