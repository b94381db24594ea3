// What a track change costs the fill thread, which must not let the ring run dry over it.
#include <stdexcept>

#include "bench/Bench.h"
#include "bench/MusicFile.h"
#include "engine/decoders/DecoderFactory.h"
#include "engine/fill/FillPCM.h"
#include "engine/joins/CrossfadeMixer.h"
#include "engine/output/ClientFormat.h"
#include "foundation/Log.h"

namespace velorin::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kJoins = 40;
constexpr std::uint32_t kBlock = 4096;

Track trackOf(const std::filesystem::path& path) {
  Track track;
  track.filePath = path.string();
  return track;
}

std::unique_ptr<FileDecoder> open(const std::filesystem::path& path) {
  auto opened = DecoderFactory::open(path);
  if (!opened) throw std::runtime_error("cannot open the bench's own file");
  return std::move(opened).value();
}

/// Milliseconds from the pass that meets the end of one file to the first frames of the next in
/// the ring.
double joinMs(const std::filesystem::path& first, const std::filesystem::path& second,
              bool isPreOpened) {
  auto desk = std::make_shared<JoinDesk>();
  auto decoder = open(first);
  // The last half second of the first file, and room for all of it.
  const std::int64_t length = decoder->totalFrames();
  decoder->seek(length - 22'050);
  PlaybackSession session(clientFormatFor(false, 16, 44'100, 2), 1 << 16, desk);
  session.source = std::make_shared<const SourceFacts>(describeSource(trackOf(first), *decoder));
  session.reader = std::make_unique<SourceReader>(std::move(decoder), session.source, nullptr,
                                                  session.clientFormat);
  session.clock.jump(session.source, 0);
  session.cells.fillThreadShouldRun = true;
  session.cells.rendering = true;
  desk->nextTrack.set(NextTrack::Wish{trackOf(second)});
  if (isPreOpened) desk->preOpened.put(second.string(), {.decoder = open(second)});

  FillPCM fill(session);
  Clock::time_point lastOfFirst;
  double took = -1;
  fill.run([&] {
    const std::int64_t written = session.ring.framesWritten();
    if (written > 22'050) {
      took = std::chrono::duration<double, std::milli>(Clock::now() - lastOfFirst).count();
      session.cells.fillThreadShouldRun = false;
    } else if (written == 22'050 && lastOfFirst == Clock::time_point()) {
      lastOfFirst = Clock::now();
    }
  });
  if (took < 0) throw std::runtime_error("the tracks were not joined");
  return took;
}

const Registration kGapless("join", [](BenchReport& report) {
  log::setMinimumLevel(log::Level::error);
  const BenchFolder folder;
  writeMusicFile(folder / "1.flac", {.seconds = 5});
  writeMusicFile(folder / "2.flac", {.seconds = 5});
  for (const bool isPreOpened : {true, false}) {
    std::vector<double> times;
    for (int i = 0; i < kJoins; ++i) {
      times.push_back(joinMs(folder / "1.flac", folder / "2.flac", isPreOpened));
    }
    std::ranges::sort(times);
    const std::string name = std::string("end of a FLAC to the next one's first block, ") +
                             (isPreOpened ? "opened ahead" : "not opened ahead");
    report.add(name + ", median", times[kJoins / 2], "ms");
    // The ring is never shorter than the device's buffer.
    report.add(name + ", worst", times.back(), "ms");
  }
  log::setMinimumLevel(log::Level::info);
});

const Registration kCrossfade("crossfade", [](BenchReport& report) {
  constexpr int kBlocks = 500;
  for (const auto& [name, isInteger, bits] :
       {std::tuple("float", false, 16), std::tuple("16-bit", true, 16),
        std::tuple("32-bit", true, 24)}) {
    const StreamFormat format = clientFormatFor(isInteger, bits, 44'100, 2);
    PlanarBuffers newer(2, kBlock, format.bytesPerFrame);
    PlanarBuffers older(2, kBlock, format.bytesPerFrame);
    const double seconds = cpuSecondsOf(5, [&] {
      CrossfadeMixer mixer(format, std::int64_t{kBlocks} * kBlock);
      for (int i = 0; i < kBlocks; ++i) mixer.mix(newer.list(), kBlock, older.list(), kBlock);
      keep(newer.list());
    });
    report.add(std::string("stereo mix, ") + name, 1e9 * seconds / (kBlocks * kBlock), "ns/frame");
  }
});

}  // namespace
}  // namespace velorin::bench
