// The engine on a real sound server: what reaches the sink is what is in the file.
#include <gtest/gtest.h>

#include "integration/SinkPlayer.h"
#include "support/PipeWireSession.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using test::MonitorFormat;
using Player = test::SinkPlayer;

/// Interleaved samples of the recording, at the top of 32-bit words.
std::vector<std::int32_t> recorded(const std::vector<std::byte>& bytes, MonitorFormat format) {
  std::vector<std::int32_t> samples;
  const std::size_t size = format == MonitorFormat::int16 ? 2 : 4;
  for (std::size_t at = 0; at + size <= bytes.size(); at += size) {
    if (format == MonitorFormat::int16) {
      std::int16_t sample;
      std::memcpy(&sample, &bytes[at], 2);
      samples.push_back(std::int32_t{sample} * 65536);
    } else if (format == MonitorFormat::int32) {
      std::int32_t sample;
      std::memcpy(&sample, &bytes[at], 4);
      samples.push_back(sample);
    } else {
      float sample;
      std::memcpy(&sample, &bytes[at], 4);
      samples.push_back(static_cast<std::int32_t>(static_cast<double>(sample) * 2147483648.0));
    }
  }
  return samples;
}

std::vector<std::int32_t> interleaved(const test::FlacFixture& fixture, unsigned bits) {
  std::vector<std::int32_t> samples;
  for (std::size_t i = 0; i < fixture.samples[0].size(); ++i) {
    for (const auto& channel : fixture.samples) {
      samples.push_back(
          static_cast<std::int32_t>(static_cast<std::uint32_t>(channel[i]) << (32 - bits)));
    }
  }
  return samples;
}

struct Case {
  unsigned rate, bits;
  bool integer;
  MonitorFormat monitor;
};

/// Plays a track to its end and compares what the sink got. False when the server could not keep
/// up and said so: there is nothing to compare then.
bool playAndCompare(const Case& c) {
  Player player("any");
  EXPECT_TRUE(player.hardware);
  const Track track =
      player.write("a.flac", {.bits = c.bits, .sampleRate = c.rate, .frames = c.rate});
  player.engine->setIntegerMode(c.integer);
  test::PipeWireMonitorRecorder recorder;
  EXPECT_TRUE(recorder.start("any", c.rate, 2, c.monitor));
  player.engine->play(track);
  EXPECT_EQ(player.engine->state(), PlaybackState::playing);
  EXPECT_TRUE(player.engine->facts().deviceRateVerified);
  std::uint64_t xruns = 0;
  EXPECT_TRUE(player.until([&] {
    xruns = std::max(xruns, player.engine->facts().output.xruns);
    return player.hasEnded;
  }));
  if (xruns > 0) return false;

  const auto heard = recorded(recorder.stop(), c.monitor);
  const auto expected = interleaved(player.fixture, c.bits);
  // The whole track, in one piece, up to the very last frame.
  const auto found =
      std::search(heard.begin(), heard.end(), expected.begin(), expected.begin() + 64);
  if (found == heard.end() || static_cast<std::size_t>(heard.end() - found) < expected.size()) {
    ADD_FAILURE() << "the track is not whole in the recording";
    return true;
  }
  const auto difference = std::mismatch(expected.begin(), expected.end(), found).first;
  EXPECT_TRUE(difference == expected.end())
      << "frame " << (difference - expected.begin()) / 2 << " of " << expected.size() / 2;
  return true;
}

TEST(PipeWirePlayback, EveryBitOfTheFileReachesTheSink) {
  VELORIN_NEEDS_PIPEWIRE();
  constexpr int kTakes = 5;
  const Case cases[] = {
      {44100, 16, true, MonitorFormat::int16},  {44100, 16, false, MonitorFormat::int16},
      {48000, 24, false, MonitorFormat::int32}, {96000, 24, true, MonitorFormat::int32},
      {192000, 24, true, MonitorFormat::int32},
  };
  test::PipeWireSession session({{.name = "any"}}, {44100, 48000, 88200, 96000, 176400, 192000});
  ASSERT_TRUE(session.start()) << session.error();
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << c.rate << " Hz, " << c.bits << " bits, integer " << c.integer);
    int take = 1;
    while (!playAndCompare(c) && take < kTakes) ++take;
    EXPECT_LT(take, kTakes) << "no take without an xrun";
  }
}

}  // namespace
}  // namespace velorin
