// Opus and WavPack: decoding into the ring against the library alone, and seeking. And how fast a
// file is brought into RAM.
#include <fmt/format.h>
#include <opus/opusfile.h>
#include <wavpack/wavpack.h>

#include <array>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <vector>

#include "bench/Bench.h"
#include "bench/DecodeRace.h"
#include "bench/MusicFile.h"
#include "engine/memory/MemoryStorage.h"
#include "foundation/Log.h"

namespace velorin::bench {
namespace {

constexpr int kChunk = 4096;
constexpr std::uint32_t kSeconds = 180;

std::uint64_t decodeWithWavPack(const std::filesystem::path& path) {
  std::array<char, 80> error{};
  WavpackContext* const context = WavpackOpenFileInput(path.c_str(), error.data(), OPEN_WVC, 0);
  if (context == nullptr) throw std::runtime_error(error.data());
  std::vector<std::int32_t> buffer(
      static_cast<std::size_t>(kChunk * WavpackGetNumChannels(context)));
  std::uint64_t frames = 0;
  while (const std::uint32_t got = WavpackUnpackSamples(context, buffer.data(), kChunk)) {
    frames += got;
  }
  WavpackCloseFile(context);
  return frames;
}

std::uint64_t decodeWithOpusFile(const std::filesystem::path& path, bool isInteger) {
  int error = 0;
  OggOpusFile* const file = op_open_file(path.c_str(), &error);
  if (file == nullptr) throw std::runtime_error(fmt::format("opusfile error {}", error));
  std::vector<float> floats(2 * kChunk);
  std::vector<std::int16_t> shorts(2 * kChunk);
  std::uint64_t frames = 0;
  while (true) {
    const int got = isInteger ? op_read_stereo(file, shorts.data(), 2 * kChunk)
                              : op_read_float_stereo(file, floats.data(), 2 * kChunk);
    if (got <= 0) break;
    frames += static_cast<std::uint64_t>(got);
  }
  op_free(file);
  return frames;
}

const Registration kWavPack("decode-wavpack", [](BenchReport& report) {
  const BenchFolder folder;
  struct Case {
    MusicSpec spec;
    const char* name;
    std::vector<std::string> options;
  };
  const auto source = folder / "music.flac";
  const auto wave = folder / "music.wav";
  const auto path = folder / "music.wv";
  for (const Case& c : {Case{{.sampleRate = 44'100, .bits = 16}, "WavPack 16/44.1", {}},
                        Case{{.sampleRate = 96'000, .bits = 24}, "WavPack 24/96", {}},
                        Case{{.sampleRate = 44'100, .bits = 16},
                             "WavPack hybrid and correction 16/44.1",
                             {"-b320", "-c"}}}) {
    writeMusicFile(source, c.spec);
    encode({"flac", "-s", "-f", "-d", source.native(), "-o", wave.native()}, wave);
    std::vector<std::string> command = {"wavpack", "-q", "-y"};
    command.insert(command.end(), c.options.begin(), c.options.end());
    command.insert(command.end(), {wave.native(), "-o", path.native()});
    encode(command, path);
    runDecodeRace(report,
                  {.name = c.name,
                   .library = "libwavpack",
                   .path = path,
                   .frames = std::uint64_t{kSeconds} * c.spec.sampleRate,
                   .decodeAlone = [&] { return decodeWithWavPack(path); }},
                  {false, true});
    reportSeekTime(report, c.name, path);
  }
});

const Registration kOpus("decode-opus", [](BenchReport& report) {
  const BenchFolder folder;
  writeMusicFile(folder / "music.flac", {.sampleRate = 48'000});
  const auto path = folder / "music.opus";
  encode(
      {"opusenc", "--quiet", "--bitrate", "160", (folder / "music.flac").native(), path.native()},
      path);
  for (const bool isInteger : {false, true}) {
    runDecodeRace(report,
                  {.name = "Opus 160 kb/s",
                   .library = "opusfile",
                   .path = path,
                   .frames = std::uint64_t{kSeconds} * 48'000,
                   .decodeAlone = [&] { return decodeWithOpusFile(path, isInteger); }},
                  {isInteger});
  }
  reportSeekTime(report, "Opus 160 kb/s", path);
});

const Registration kLoad("memory-load", [](BenchReport& report) {
  const BenchFolder folder;
  const log::Capture quiet;
  const auto path = folder / "image.bin";
  constexpr std::int64_t kSize = std::int64_t{256} << 20;
  {
    const std::vector<char> block(1 << 20, 'x');
    std::ofstream file(path, std::ios::binary);
    for (std::int64_t i = 0; i < kSize; i += 1 << 20) file.write(block.data(), 1 << 20);
  }
  const double seconds = secondsOf(5, [&] {
    if (!MemoryStorage::load(path, kSize)) throw std::runtime_error("the file was not loaded");
  });
  report.add("256 MB file into RAM", static_cast<double>(kSize) / (1 << 20) / seconds, "MB/s");
});

}  // namespace
}  // namespace velorin::bench
