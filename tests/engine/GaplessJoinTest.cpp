// Track to track through the whole engine: not a frame lost, none doubled, none of another track.
#include "engine/EngineHarness.h"

namespace velorin {
namespace {

using test::asFloat;
using test::EngineHarness;
using test::FlacRecipe;
using test::leftJustified;
using test::wideDevice;

VirtualDeviceDescription smallBuffers(VirtualClock clock) {
  auto device = wideDevice(clock);
  device.bufferRange = {64, 512};
  return device;
}

// Plays tracks as a controller does: names the next one whenever one is announced.
class Playlist {
 public:
  Playlist(EngineHarness& harness, std::vector<Track> tracks)
      : _harness(harness), _tracks(std::move(tracks)) {
    _subscription = harness.bus.subscribe<TrackDidChange>(
        Delivery::mainThread, [this](const TrackDidChange&) { nameNext(); });
    _next = 1;
    _harness.engine->setNextTrack(at(1));
  }

  void playToEnd() { _harness.playToEnd(_tracks[0]); }

 private:
  std::optional<Track> at(std::size_t index) const {
    return index < _tracks.size() ? std::optional(_tracks[index]) : std::nullopt;
  }
  void nameNext() { _harness.engine->setNextTrack(at(_next++)); }

  EngineHarness& _harness;
  std::vector<Track> _tracks;
  std::size_t _next = 0;
  EventBus::Subscription _subscription;
};

TEST(GaplessJoin, TracksFollowEachOtherToTheFrame) {
  struct Case {
    unsigned bits;
    bool integer;
    std::vector<std::uint32_t> lengths;
  };
  const Case cases[] = {
      {16, true, {30'001, 20'000, 1}},
      {16, false, {30'001, 4096, 8192}},
      {24, true, {5'000, 60'000}},
      {24, false, std::vector<std::uint32_t>(20, 4'410)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.bits << " bits, integer " << c.integer);
    EngineHarness h(smallBuffers(VirtualClock::unpaced));
    h.engine->setIntegerMode(c.integer);
    std::vector<Track> tracks;
    std::vector<std::int32_t> all;
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < c.lengths.size(); ++i) {
      const std::string name = "t" + std::to_string(i) + ".flac";
      tracks.push_back(h.file(
          name,
          {.bits = c.bits, .frames = c.lengths[i], .seed = static_cast<std::uint32_t>(i + 1)}));
      all.insert(all.end(), h.lastSamples[0].begin(), h.lastSamples[0].end());
      expected.push_back("track " + name + (i > 0 ? " gapless" : ""));
    }
    expected.insert(expected.begin(), "state playing");
    expected.insert(expected.end(), {"state stopped", "next auto"});
    Playlist list(h, tracks);
    list.playToEnd();
    EXPECT_TRUE(c.integer ? h.recorder->integers()[0] == leftJustified(all, c.bits)
                          : h.recorder->floats()[0] == asFloat(all, c.bits));
    EXPECT_EQ(h.events, expected);
  }
}

}  // namespace
}  // namespace velorin
