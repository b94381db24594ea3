#include "bench/DecodeRace.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <limits>
#include <random>
#include <stdexcept>

#include "bench/Bench.h"
#include "engine/decoders/DecoderFactory.h"
#include "engine/fill/SourceReader.h"
#include "engine/output/ClientFormat.h"
#include "engine/ring/AudioRingBuffer.h"
#include "tests/support/ChildProcess.h"

namespace velorin::bench {
namespace {

constexpr int kTurns = 9;
constexpr double kRingSeconds = 30;
constexpr std::size_t kSeeks = 101;
constexpr std::uint32_t kFirstRead = 4096;

std::unique_ptr<FileDecoder> open(const std::filesystem::path& path) {
  auto opened = DecoderFactory::open(path);
  if (!opened) throw std::runtime_error(opened.error().text);
  return std::move(opened).value();
}

std::uint64_t decodeIntoRing(const std::filesystem::path& path, bool isInteger,
                             AudioRingBuffer& ring) {
  std::unique_ptr<FileDecoder> decoder = open(path);
  const StreamFormat format = clientFormatFor(isInteger, static_cast<int>(decoder->bitsPerSample()),
                                              decoder->sampleRate(), decoder->channels());
  const auto facts = std::make_shared<const SourceFacts>(describeSource(Track{}, *decoder));
  SourceReader reader(std::move(decoder), facts, nullptr, format);
  std::uint64_t frames = 0;
  while (reader.read() == SourceReader::Outcome::produced) {
    if (ring.freeSpace() < reader.chunk()) ring.flush();
    frames += ring.write(reader.list(), reader.frames());
  }
  return frames;
}

}  // namespace

void runDecodeRace(BenchReport& report, const DecodeRace& race, std::initializer_list<bool> routes,
                   double target) {
  const auto decoder = open(race.path);
  const double rate = decoder->sampleRate();
  for (const bool isInteger : routes) {
    const std::uint32_t sampleSize = isInteger && decoder->bitsPerSample() <= 16 ? 2 : 4;
    AudioRingBuffer ring(decoder->channels(), static_cast<std::int64_t>(kRingSeconds * rate),
                         sampleSize);
    double library = std::numeric_limits<double>::infinity();
    double ours = library;
    const auto check = [&](std::uint64_t frames, const std::string& who) {
      if (frames == race.frames) return;
      throw std::runtime_error(
          fmt::format("{}: {} frames of {} from {}", race.name, frames, race.frames, who));
    };
    for (int turn = 0; turn < kTurns; ++turn) {
      library =
          std::min(library, cpuSecondsOf(1, [&] { check(race.decodeAlone(), race.library); }));
      ours = std::min(ours, cpuSecondsOf(1, [&] {
                        check(decodeIntoRing(race.path, isInteger, ring), "the ring");
                      }));
    }
    const std::string to = race.name + (isInteger ? " to integer" : " to float");
    report.add(fmt::format("{}, speed against {} alone", to, race.library), library / ours, "x",
               atLeast(target));
    report.add(to, static_cast<double>(race.frames) / rate / ours, "x real time");
  }
}

void reportSeekTime(BenchReport& report, const std::string& name,
                    const std::filesystem::path& path) {
  const auto decoder = open(path);
  PlanarBuffers buffers(decoder->channels(), kFirstRead, 4);
  std::mt19937 random(5);
  std::vector<double> times;
  const auto reach =
      static_cast<std::uint64_t>(std::max<std::int64_t>(decoder->totalFrames() - kFirstRead, 1));
  for (std::size_t i = 0; i < kSeeks; ++i) {
    const auto target = static_cast<std::int64_t>(random() % reach);
    times.push_back(1e3 * secondsOf(1, [&] {
                      if (!decoder->seek(target) ||
                          decoder->read(buffers.list(), kFirstRead, true).frames == 0) {
                        throw std::runtime_error(name + ": a seek failed");
                      }
                    }));
  }
  std::ranges::sort(times);
  report.add(name + " seek and first read, median", times[kSeeks / 2], "ms");
  report.add(name + " seek and first read, worst", times.back(), "ms");
}

void encode(const std::vector<std::string>& command, const std::filesystem::path& made) {
  const std::string said = test::runProgram(command, std::chrono::minutes(2));
  if (std::filesystem::exists(made)) return;
  throw std::runtime_error(fmt::format("{}: {}", fmt::join(command, " "), said));
}

}  // namespace velorin::bench
