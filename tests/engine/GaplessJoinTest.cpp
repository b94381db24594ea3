// Track to track through the whole engine: not a frame lost, none doubled, none of another track.
#include <fstream>

#include "engine/EngineHarness.h"
#include "engine/resampling/ResampleStage.h"
#include "support/Eventually.h"

namespace velorin {
namespace {

using test::asFloat;
using test::EngineHarness;
using test::eventually;
using test::FlacRecipe;
using test::leftJustified;
using test::wideDevice;

constexpr std::uint32_t kBuffer = 512;
using Samples = std::vector<float>;

// Plays tracks as a controller does: names the next one whenever one is announced.
class Player : public EngineHarness {
 public:
  explicit Player(VirtualClock clock = VirtualClock::manual, std::uint32_t dropped = 0)
      : Player(describe(clock, dropped)) {}
  explicit Player(const VirtualDeviceDescription& device_) : EngineHarness(device_) {
    _subscription =
        bus.subscribe<TrackDidChange>(Delivery::mainThread, [this](const TrackDidChange&) {
          wasPending = engine->gaplessTransitionPending();
          if (namesNext) engine->setNextTrack(at(_next++));
        });
  }

  static VirtualDeviceDescription describe(VirtualClock clock, std::uint32_t dropped) {
    auto device = wideDevice(clock);
    device.bufferRange = {64, kBuffer};
    device.framesDroppedOnStop = dropped;
    return device;
  }

  // Noise of its own for every file; its first channel is kept, as the ring has it in float mode.
  Track noise(const std::string& name, std::uint32_t frames, unsigned rate = 44100,
              unsigned bits = 16, unsigned channels = 2) {
    const bool hasExtension = name.find('.') != std::string::npos;
    Track track = file(hasExtension ? name : name + ".flac", {.channels = channels,
                                                              .bits = bits,
                                                              .sampleRate = rate,
                                                              .frames = frames,
                                                              .seed = ++_seed});
    track.title = name;
    samples[name] = asFloat(lastSamples[0], bits);
    return track;
  }
  Track part(const Track& album, const std::string& name, double from, double to) {
    Track track = album;
    track.title = name;
    track.cueStartTime = from;
    track.cueEndTime = to;
    const auto& whole = samples[album.title];
    const auto frame = [](double seconds) { return std::lround(seconds * 44100); };
    samples[name] = {whole.begin() + frame(from), whole.begin() + frame(to)};
    return track;
  }

  void start(std::vector<Track> list) {
    tracks = std::move(list);
    events.clear();
    _next = 1;
    engine->setNextTrack(at(1));
    engine->play(tracks[0]);
  }

  // Renders what there is, as far as the main thread has kept up, until the music has ended.
  void listenToEnd() {
    ASSERT_TRUE(waitUntil([&] {
      for (int i = 0; i < 100 && hardware.isRunning(device) && mayRender(kBuffer); ++i) {
        hardware.pull(device, kBuffer);
      }
      return std::ranges::find(events, "next auto") != events.end();
    }));
  }
  void listen(std::uint32_t frames) {
    ASSERT_TRUE(waitUntil([&] {
      while (frames > 0 && mayRender(std::min(frames, kBuffer))) {
        hardware.pull(device, std::min(frames, kBuffer));
        frames -= std::min(frames, kBuffer);
      }
      return frames == 0;
    }));
  }
  bool mayRender(std::uint32_t frames) const {
    return engine->gaplessCountdown() != 0 && engine->canRender(frames);
  }
  bool waitForJoin() {
    return waitUntil([&] { return engine->joinCountdownRuns(); });
  }

  Samples all(const std::vector<std::string>& names) {
    Samples result;
    for (const auto& name : names) {
      result.insert(result.end(), samples[name].begin(), samples[name].end());
    }
    return result;
  }
  bool heardExactly(const Samples& expected) const { return recorder->floats()[0] == expected; }
  bool heardTracks(const std::vector<std::string>& names) { return heardExactly(all(names)); }

  // The announcements, without the rest of the events.
  std::vector<std::string> announced() const {
    std::vector<std::string> result;
    for (const auto& event : events) {
      if (event.starts_with("track ")) result.push_back(event.substr(6));
    }
    return result;
  }

  std::map<std::string, Samples> samples;
  std::vector<Track> tracks;
  bool namesNext = true;
  bool wasPending = false;

 private:
  std::optional<Track> at(std::size_t index) const {
    return index < tracks.size() ? std::optional(tracks[index]) : std::nullopt;
  }
  std::size_t _next = 0;
  std::uint32_t _seed = 0;
  EventBus::Subscription _subscription;
};

using Names = std::vector<std::string>;

Samples resampled(const Samples& input, double from, double to) {
  const auto stage = ResampleStage::create(from, StreamFormat::planarFloat(to, 1));
  Samples output;
  const auto take = [&](std::uint32_t frames) {
    const auto* block = stage->output().channel<float>(0);
    output.insert(output.end(), block, block + frames);
    return frames;
  };
  for (std::size_t at = 0; at < input.size(); at += 4096) {
    AudioBufferList list{.bufferCount = 1};
    list.buffers[0].data = const_cast<float*>(input.data() + at);
    take(stage->process(
        list, static_cast<std::uint32_t>(std::min<std::size_t>(4096, input.size() - at))));
  }
  while (take(stage->drain()) > 0) continue;
  return output;
}

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
    Player h(VirtualClock::unpaced);
    h.engine->setIntegerMode(c.integer);
    std::vector<Track> tracks;
    std::vector<std::int32_t> all;
    Names expected = {"state playing"};
    for (std::size_t i = 0; i < c.lengths.size(); ++i) {
      const std::string name = "t" + std::to_string(i);
      tracks.push_back(h.noise(name, c.lengths[i], 44100, c.bits));
      all.insert(all.end(), h.lastSamples[0].begin(), h.lastSamples[0].end());
      expected.push_back("track " + name + (i > 0 ? " gapless" : ""));
    }
    expected.insert(expected.end(), {"state stopped", "next auto"});
    h.start(tracks);
    ASSERT_TRUE(h.waitFor("next auto"));
    EXPECT_TRUE(c.integer ? h.recorder->integers()[0] == leftJustified(all, c.bits)
                          : h.recorder->floats()[0] == asFloat(all, c.bits));
    EXPECT_EQ(h.events, expected);
  }
}

TEST(GaplessJoin, AResampledStreamIsOneSignal) {
  Player h;
  h.resampleTo(96000);
  h.start({h.noise("a", 30'001), h.noise("b", 20'000), h.noise("c", 300), h.noise("d", 9'000)});
  h.listenToEnd();
  const Samples expected = resampled(h.all({"a", "b", "c", "d"}), 44100, 96000);
  const Samples heard = h.recorder->floats()[0];
  EXPECT_NEAR(static_cast<double>(heard.size()), static_cast<double>(expected.size()), 1);
  // "c" is shorter than the filter, which is emptied for its sake; until then not a bit differs.
  EXPECT_TRUE(std::equal(heard.begin(), heard.begin() + 100'000, expected.begin()));
  EXPECT_EQ(h.announced(), (Names{"a", "b gapless", "c gapless", "d gapless"}));
}

TEST(GaplessJoin, ABridgeCarriesOtherRatesAndIsDroppedAgain) {
  Player h;
  h.resampleTo(96000);
  h.start({h.noise("a", 20'000, 96000), h.noise("b", 30'001), h.noise("c", 20'000),
           h.noise("d", 25'000, 48000), h.noise("e", 10'000, 96000)});
  h.listenToEnd();
  Samples expected = h.samples["a"];
  for (const Samples& next : {resampled(h.all({"b", "c"}), 44100, 96000),
                              resampled(h.samples["d"], 48000, 96000), h.samples["e"]}) {
    expected.insert(expected.end(), next.begin(), next.end());
  }
  EXPECT_TRUE(h.heardExactly(expected));
  EXPECT_TRUE(h.log.contains("🔗 Gapless bridge created: 44100Hz → 96000Hz"));
  EXPECT_TRUE(h.log.contains("🔗 Gapless bridge recreated: 48000Hz → 96000Hz"));
  EXPECT_TRUE(h.log.contains("🔗 Gapless bridge dropped: source matches DAC rate"));
  EXPECT_TRUE(h.log.contains("🔗 Gapless transition → b [flac]"));
}

TEST(GaplessJoin, WhatDoesNotFitCostsAGapAndNeverWrongSound) {
  struct Case {
    const char* what;
    std::function<void(Player&)> setUp;
    std::function<Track(Player&)> next;
    const char* line;
  };
  const auto nothing = [](Player&) {};
  const auto integer = [](Player& h) { h.engine->setIntegerMode(true); };
  const Case cases[] = {
      {"channels", nothing, [](Player& h) { return h.noise("b", 900, 44100, 16, 1); }, ""},
      {"depth", integer, [](Player& h) { return h.noise("b", 900, 44100, 24); },
       "🔗 Gapless aborted: bit-depth mismatch in integer mode (16 → 24)"},
      {"native rate", nothing, [](Player& h) { return h.noise("b", 900, 96000); },
       "🔗 Gapless aborted: Native mode + rate change (44100Hz → 96000Hz) — falling back to "
       "restart for bit-perfect"},
      {"strategy", [](Player& h) { h.engine->setSampleRateStrategy(SampleRateStrategy::powerOf2); },
       [](Player& h) { return h.noise("b", 900, 48000); }, ""},
      {"missing", nothing, [](Player& h) { return h.trackOf("missing.flac"); }, ""},
      {"DSD", nothing, [](Player& h) { return h.noise("b.dsf", 900); }, ""},
      {"not music", nothing,
       [](Player& h) {
         std::ofstream(h.folder / "text.flac") << "no music";
         return h.trackOf("text.flac");
       },
       ""},
      {"switched off", [](Player& h) { h.engine->setGaplessEnabled(false); },
       [](Player& h) { return h.noise("b", 900); }, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Player h;
    c.setUp(h);
    const Track first = h.noise("a", 20'000);
    const auto expected = h.lastSamples[0];
    h.start({first, c.next(h)});
    h.listenToEnd();
    if (h.engine->integerMode()) {
      EXPECT_TRUE(h.recorder->integers()[0] == leftJustified(expected, 16));
    } else if (h.recorder->format().sampleRate == 44100) {
      EXPECT_TRUE(h.heardTracks({"a"}));
    }
    EXPECT_EQ(h.announced(), Names{"a"});
    EXPECT_TRUE(h.log.contains(c.line));
    EXPECT_FALSE(h.engine->nextTrack()) << "the controller chooses what comes now";
  }
}

TEST(GaplessJoin, TheChangeLandsOnTheVeryFrame) {
  Player h;
  h.start({h.noise("a", 10'000), h.noise("b", 30'000, 44100, 24)});
  ASSERT_TRUE(h.waitForJoin());
  const double latency = kBuffer / 44100.0;
  h.listen(9'999);
  EXPECT_EQ(h.engine->gaplessCountdown(), 1);
  EXPECT_NEAR(h.engine->currentPosition(), 9'999 / 44100.0 - latency, 1e-9);
  EXPECT_EQ(h.engine->facts().sourceBitDepth, 16) << "what is heard, not what is decoded";
  h.pull(400);
  EXPECT_EQ(h.engine->gaplessCountdown(), 0);
  EXPECT_EQ(h.engine->facts().sourceBitDepth, 24);
  EXPECT_EQ(h.engine->fileFormat().bitsPerChannel, 24u);
  EXPECT_EQ(h.engine->currentPosition(), 0) << "399 frames of it, which the device still holds";
  EXPECT_EQ(h.engine->currentTrack()->title, "a") << "not announced yet";

  ASSERT_TRUE(h.waitFor("track b gapless"));
  EXPECT_TRUE(h.wasPending) << "the join lasts until the handlers have run";
  EXPECT_TRUE(h.waitUntil([&] { return !h.engine->gaplessTransitionPending(); }));
  EXPECT_EQ(h.engine->currentTrack()->title, "b");
  EXPECT_EQ(h.engine->lastTrack()->title, "a");
  EXPECT_EQ(h.engine->sourceBitDepth(), 24);
  EXPECT_DOUBLE_EQ(h.engine->duration(), 30'000 / 44100.0);
  h.listen(1'000);
  EXPECT_NEAR(h.engine->currentPosition(), 1'399 / 44100.0 - latency, 1e-9);
  EXPECT_TRUE(h.log.contains("🔔 Fire gapless notification → b (userPos≈0.0s)"));
}

TEST(GaplessJoin, AnotherWishTakesTheJoinBackWhileItIsNotHeard) {
  struct Case {
    const char* wish;  // null: none
    double target;
  };
  for (const Case& c : {Case{"c", 0}, Case{nullptr, 0}, Case{"b", 0}, Case{"c", 96000}}) {
    SCOPED_TRACE(testing::Message() << (c.wish != nullptr ? c.wish : "none") << " at " << c.target);
    Player h;
    if (c.target > 0) h.resampleTo(c.target);
    h.start({h.noise("a", 30'000), h.noise("b", 20'000)});
    const Track other = h.noise("c", 10'000);
    h.namesNext = false;
    ASSERT_TRUE(h.waitForJoin());
    h.listen(5'000);
    std::optional<Track> wish;
    if (c.wish != nullptr) wish = c.wish == std::string("c") ? other : h.tracks[1];
    h.engine->setNextTrack(wish);
    h.listenToEnd();

    const bool isSame = wish && wish->title == "b";
    EXPECT_EQ(h.log.contains("🔗 Join taken back: b"), !isSame);
    Names names = {"a"};
    Names events = {"a"};
    if (wish) names.push_back(wish->title);
    if (wish) events.push_back(wish->title + " gapless");
    EXPECT_EQ(h.announced(), events);
    if (c.target > 0) {
      const auto frames = static_cast<double>(h.recorder->floats()[0].size());
      EXPECT_NEAR(frames, 40'000 * c.target / 44100, 1);
    } else {
      EXPECT_TRUE(h.heardTracks(names));
    }
  }
}

TEST(GaplessJoin, WhatIsHeardCannotBeTakenBackAndWhatDrainsCanBeJoined) {
  Player h;
  h.start({h.noise("a", 10'000), h.noise("b", 20'000)});
  const Track third = h.noise("c", 5'000);
  const Track fourth = h.noise("d", 6'000);
  h.namesNext = false;
  ASSERT_TRUE(h.waitForJoin());
  h.listen(10'001);
  h.engine->setNextTrack(third);
  ASSERT_TRUE(h.waitFor("track b gapless"));
  EXPECT_EQ(h.engine->nextTrack()->title, "c") << "too late for b, and still wished for";
  ASSERT_TRUE(h.waitForJoin());
  h.listen(5'000);
  // Taken back as well: the end of b is decoded, its file closed, and it plays out …
  h.engine->setNextTrack(std::nullopt);
  ASSERT_TRUE(h.waitUntil([&] { return h.log.contains("🔗 Join taken back: c"); }));
  // … but the listener can still go back in it, and name another that comes behind it.
  h.engine->seek(0.1);
  ASSERT_TRUE(h.waitUntil([&] { return h.engine->canRender(1'000); }));
  EXPECT_EQ(h.heard(1'000),
            Samples(h.samples["b"].begin() + 4'410, h.samples["b"].begin() + 5'410));
  h.engine->setNextTrack(fourth);
  h.listenToEnd();
  EXPECT_EQ(h.announced(), (Names{"a", "b gapless", "d gapless"}));
  const Samples all = h.recorder->floats()[0];
  EXPECT_TRUE(std::equal(h.samples["d"].rbegin(), h.samples["d"].rend(), all.rbegin()));
  EXPECT_EQ(all.size(), 10'001u + 5'000 + (20'000 - 4'410) + 6'000);
}

TEST(GaplessJoin, ASeekWhileAJoinWaitsIsOneInTheTrackThatIsHeard) {
  Player h;
  h.start({h.noise("a", 30'000), h.noise("b", 20'000)});
  ASSERT_TRUE(h.waitForJoin());
  h.listen(1'000);
  h.engine->seek(0.1);
  ASSERT_TRUE(h.waitUntil([&] { return h.engine->canRender(500); }));
  EXPECT_EQ(h.heard(500), Samples(h.samples["a"].begin() + 4'410, h.samples["a"].begin() + 4'910));
  EXPECT_EQ(h.engine->currentTrack()->title, "a");
  // The next track is joined again, behind the last frame.
  h.listenToEnd();
  EXPECT_EQ(h.announced(), (Names{"a", "b gapless"}));
  EXPECT_EQ(h.recorder->floats()[0].size(), 1'000u + (30'000 - 4'410) + 20'000);
}

TEST(GaplessJoin, ASeekBackInAFileThatIsGoneEndsTheTrack) {
  Player h;
  h.start({h.noise("a", 30'000), h.noise("b", 20'000)});
  ASSERT_TRUE(h.waitForJoin());
  h.listen(1'000);
  ASSERT_TRUE(std::filesystem::remove(h.engine->currentTrack()->filePath));
  h.engine->seek(0.1);
  h.listenToEnd();
  EXPECT_EQ(h.announced(), Names{"a"});
}

TEST(GaplessJoin, CueTracksOfOneFile) {
  struct Case {
    double secondStart;
    const char* line;
  };
  for (const Case& c : {Case{0.5, "🔗 CUE gapless → two [0.5→1.5s]"},
                        Case{0.8, "🔗 CUE gapless → two [0.8→1.8s] (seek)"}}) {
    SCOPED_TRACE(c.line);
    Player h;
    const Track album = h.noise("album", 44100 * 2);
    h.start(
        {h.part(album, "one", 0.25, 0.5), h.part(album, "two", c.secondStart, c.secondStart + 1)});
    h.listenToEnd();
    EXPECT_TRUE(h.heardTracks({"one", "two"}));
    EXPECT_EQ(h.announced(), (Names{"one", "two gapless"}));
    EXPECT_TRUE(h.log.contains(c.line));
  }
}

TEST(GaplessJoin, AJumpInTheHeardFileOvertakesAJoinThatWaits) {
  Player h;
  const Track album = h.noise("album", 44100 * 2);
  Track last = h.part(album, "last", 1.5, 2.0);
  last.cueEndTime.reset();
  h.start({last, h.noise("b", 20'000)});
  h.namesNext = false;
  ASSERT_TRUE(h.waitForJoin());
  h.listen(1'000);
  h.engine->play(h.part(album, "one", 0.25, 0.5));
  h.engine->setNextTrack(std::nullopt);
  h.listenToEnd();
  EXPECT_EQ(h.announced(), (Names{"last", "one"}));
  Samples expected(h.samples["last"].begin(), h.samples["last"].begin() + 1'000);
  expected.insert(expected.end(), h.samples["one"].begin(), h.samples["one"].end());
  EXPECT_TRUE(h.heardExactly(expected));
}

TEST(GaplessJoin, StoppedOrMovedBetweenTheFrameAndItsAnnouncement) {
  for (const bool isMoved : {false, true}) {
    SCOPED_TRACE(isMoved);
    Player h;
    auto second = Player::describe(VirtualClock::manual, 0);
    second.uid = "second";
    const AudioDeviceID other = h.hardware.addDevice(second);
    h.start({h.noise("a", 10'000), h.noise("b", 20'000)});
    h.namesNext = false;
    ASSERT_TRUE(h.waitForJoin());
    h.listen(9'999);
    // The main thread does not run from here on.
    h.pull(512);
    h.pull(512);
    if (!isMoved) {
      h.engine->stop();
      MainThread::instance().runReady();
      EXPECT_EQ(h.announced(), Names{"a"});
      EXPECT_FALSE(h.engine->currentTrack());
      continue;
    }
    h.engine->selectOutputDevice(other);
    EXPECT_EQ(h.engine->currentTrack()->title, "b") << "what was heard goes on";
    EXPECT_NEAR(h.engine->currentPosition(), 511 / 44100.0, 1.01 / 44100);
    EXPECT_FALSE(h.engine->nextTrack()) << "it has taken over";
    ASSERT_TRUE(h.waitFor("track b gapless"));
    EXPECT_EQ(h.announced(), (Names{"a", "b gapless", "b"}));
  }
}

TEST(GaplessJoin, APauseReachesBackAcrossTheBoundary) {
  Player h(VirtualClock::manual, 3'000);
  h.start({h.noise("a", 10'000), h.noise("b", 20'000)});
  ASSERT_TRUE(h.waitForJoin());
  h.listen(11'000);
  ASSERT_TRUE(h.waitFor("track b gapless"));
  h.engine->pause();
  EXPECT_EQ(h.engine->currentPosition(), 0) << "nothing of it was heard";
  h.engine->resume();
  const Samples all = h.all({"a", "b"});
  EXPECT_EQ(h.heard(4'000), Samples(all.begin() + 8'000, all.begin() + 12'000));
  h.listen(1'000);
  EXPECT_NEAR(h.engine->currentPosition(), (3'000 - kBuffer) / 44100.0, 1e-9);
}

TEST(GaplessJoin, ADeviceWithoutIntegersGetsAllTracksAsFloat) {
  auto device = Player::describe(VirtualClock::unpaced, 0);
  device.acceptsInteger = false;
  Player h(device);
  h.engine->setIntegerMode(true);
  h.start({h.noise("a", 10'000), h.noise("b", 20'000)});
  ASSERT_TRUE(h.waitFor("next auto"));
  EXPECT_TRUE(h.heardTracks({"a", "b"}));
}

TEST(GaplessJoin, TheNextFileIsOpenedAhead) {
  Player h;
  const Track next = h.noise("b", 20'000);
  h.start({h.noise("a", 44100 * 60)});
  ASSERT_TRUE(h.waitFor("track a"));
  h.engine->setNextTrack(next);
  ASSERT_TRUE(eventually([&] { return h.log.contains("📦 Pre-opened next FLAC for gapless: b"); }));
  std::filesystem::remove(h.folder / "b.flac");
  h.listen(44100 * 50);
  EXPECT_TRUE(h.waitForJoin()) << "the file that was opened is read, not its name";
}

}  // namespace
}  // namespace velorin
