// Crossfades of the whole engine, sample by sample. The reference is the equal-power law over what
// each of the two tracks gives when it is played alone by the same engine.
#include "engine/EngineHarness.h"
#include "support/Eventually.h"

namespace velorin {
namespace {

using test::EngineHarness;
using test::wideDevice;

using Samples = std::vector<double>;  // one channel; integers in their own steps

constexpr double kFade = 0.5;
constexpr std::uint32_t kBuffer = 480;

struct Stream {
  double clientRate = 48000;
  bool integer = false;
  unsigned bits = 16;
};

struct Player : EngineHarness {
  explicit Player(const Stream& played, VirtualClock clock = VirtualClock::manual)
      : EngineHarness(describe(clock)), stream(played) {
    resampleTo(stream.clientRate);
    engine->setIntegerMode(stream.integer);
    engine->setCrossfadePlaybackEnabled(true);
    engine->setCrossfadeDuration(kFade);
  }

  static VirtualDeviceDescription describe(VirtualClock clock) {
    auto device = wideDevice(clock);
    device.bufferRange = {64, kBuffer};
    return device;
  }

  Track noise(const std::string& name, double seconds, unsigned rate = 48000) {
    return file(name, {.bits = stream.bits,
                       .sampleRate = rate,
                       .frames = static_cast<std::uint32_t>(seconds * rate),
                       .seed = ++seed});
  }

  // What the device was given so far, second channel.
  Samples recording() const {
    if (!stream.integer) {
      const auto floats = recorder->floats();
      return {floats[1].begin(), floats[1].end()};
    }
    const auto integers = recorder->integers();
    Samples result;
    for (const std::int32_t word : integers[1]) {
      result.push_back(stream.bits > 16 ? word : word / 65536);
    }
    return result;
  }

  Samples alone(const Track& track) {
    Player other(stream, VirtualClock::unpaced);
    other.playToEnd(track);
    return other.recording();
  }

  // Runs the main thread, and looks again though nothing was posted there.
  static bool waitUntil(const std::function<bool()>& condition) {
    return test::eventually([&] {
      MainThread::instance().runReady();
      return condition();
    });
  }

  // Takes so many frames as a device would, never more than there are.
  void listen(double seconds) {
    for (auto left = static_cast<std::uint32_t>(seconds * stream.clientRate); left > 0;) {
      const std::uint32_t frames = std::min(left, kBuffer);
      ASSERT_TRUE(waitUntil([&] { return engine->canRender(frames); }));
      pull(frames);
      left -= frames;
    }
  }

  void listenToEnd() {
    ASSERT_TRUE(waitUntil([&] {
      if (hardware.isRunning(device) && engine->canRender(kBuffer)) hardware.pull(device, kBuffer);
      return std::ranges::find(events, "next auto") != events.end();
    }));
  }

  bool logged(const std::string& text) const {
    return waitUntil([&] { return log.contains(text); });
  }

  std::size_t count(const std::string& event) const {
    return static_cast<std::size_t>(std::ranges::count(events, event));
  }

  Stream stream;
  std::uint32_t seed = 0;
};

std::size_t fadeFrames(const Stream& stream) {
  return static_cast<std::size_t>(kFade * stream.clientRate);
}

// `older`, faded from frame `start` on into all of `newer`.
Samples faded(const Samples& older, std::size_t start, const Samples& newer, const Stream& stream) {
  Samples result(older.begin(), older.begin() + static_cast<std::ptrdiff_t>(start));
  for (std::size_t i = 0; i < newer.size(); ++i) {
    const double t =
        std::min(1.0, static_cast<double>(i) / static_cast<double>(fadeFrames(stream)));
    const double old = start + i < older.size() ? older[start + i] : 0;
    result.push_back(std::sqrt(t) * newer[i] + std::sqrt(1 - t) * old);
    if (stream.integer) result.back() = std::trunc(result.back());
  }
  return result;
}

void expectSame(const Samples& expected, const Samples& got, const Stream& stream) {
  ASSERT_EQ(expected.size(), got.size());
  const double tolerance = stream.integer ? 1 : 5e-7;
  for (std::size_t i = 0; i < got.size(); ++i) {
    // Noise at full scale may reach beyond it in the mix; integers saturate there.
    const double top = std::ldexp(1.0, static_cast<int>(stream.bits) > 16 ? 31 : 15);
    const double law = stream.integer ? std::clamp(expected[i], -top, top - 1) : expected[i];
    ASSERT_NEAR(law, got[i], tolerance) << "frame " << i << " of " << got.size();
  }
}

TEST(Crossfade, FollowsTheLawWithAnyPairOfRates) {
  for (const Stream& stream :
       {Stream{}, Stream{.integer = true}, Stream{.integer = true, .bits = 24}}) {
    for (const unsigned oldRate : {44100u, 48000u}) {
      for (const unsigned newRate : {44100u, 48000u}) {
        SCOPED_TRACE(testing::Message() << oldRate << " to " << newRate << ", integer "
                                        << stream.integer << ", " << stream.bits << " bits");
        Player h(stream, VirtualClock::unpaced);
        const Track a = h.noise("a.flac", 1.2, oldRate);
        const Track b = h.noise("b.flac", 0.9, newRate);
        const Samples older = h.alone(a);
        const Samples newer = h.alone(b);
        h.engine->setNextTrack(b);
        h.playToEnd(a);

        const Samples got = h.recording();
        ASSERT_GT(got.size(), newer.size());
        const std::size_t start = got.size() - newer.size();
        if (oldRate == 48000) {
          EXPECT_EQ(older.size() - fadeFrames(stream), start) << "ends with the old track";
        }
        EXPECT_LE(start, older.size() - fadeFrames(stream));
        expectSame(faded(older, start, newer, stream), got, stream);
        EXPECT_EQ(1u, h.count("track b.flac crossfade"));
      }
    }
  }
}

TEST(Crossfade, IsAnnouncedAtItsAudibleEnd) {
  for (const unsigned newRate : {44100u, 48000u}) {
    Player h(Stream{});
    const Track a = h.noise("a.flac", 1.0);
    const Track b = h.noise("b.flac", 1.0, newRate);
    h.engine->setNextTrack(b);
    h.engine->play(a);
    h.listen(0.99);
    EXPECT_NEAR(0.98, h.engine->currentPosition(), 1e-9) << "the old track's, a buffer behind";
    EXPECT_EQ("a.flac", h.engine->currentTrack()->title);
    EXPECT_TRUE(h.engine->gaplessTransitionPending());
    EXPECT_EQ(0u, h.count("track b.flac crossfade"));
    h.listen(0.01);
    EXPECT_DOUBLE_EQ(kFade, h.engine->currentPosition()) << "to the frame";
    ASSERT_TRUE(h.waitFor("track b.flac crossfade"));
    EXPECT_EQ("b.flac", h.engine->currentTrack()->title);
    EXPECT_DOUBLE_EQ(1.0, h.engine->duration());
    EXPECT_EQ(newRate, h.engine->fileFormat().sampleRate);
    EXPECT_FALSE(h.engine->gaplessTransitionPending());
  }
}

TEST(Crossfade, ASeekInsideGoesBackToTheOldTrack) {
  for (const unsigned rate : {44100u, 48000u}) {
    Player h(Stream{});
    const Track a = h.noise("a.flac", 1.2, rate);
    const Track b = h.noise("b.flac", 0.8, rate);
    const Samples newer = h.alone(b);
    h.engine->setNextTrack(b);
    h.engine->play(a);
    h.listen(0.9);
    h.engine->seek(0.25);
    EXPECT_NEAR(0.25, h.engine->currentPosition(), 1e-6);
    ASSERT_TRUE(h.logged("🔀 Crossfade cancelled (seek during crossfade)"));
    EXPECT_EQ("a.flac", h.engine->currentTrack()->title);
    h.listenToEnd();

    EXPECT_EQ(1u, h.count("track b.flac crossfade"));
    Player other(Stream{}, VirtualClock::unpaced);
    other.playToEnd(a, 0.25);
    const Samples got = h.recording();
    const auto heard = static_cast<std::ptrdiff_t>(0.9 * 48000);
    const Samples rest(got.begin() + heard, got.end());
    expectSame(faded(other.recording(), rest.size() - newer.size(), newer, Stream{}), rest,
               Stream{});
  }
}

TEST(Crossfade, GivesWayToAnotherWishUntilItIsHeard) {
  struct Case {
    unsigned rate;
    double heard;  // seconds before the wish changes; the fade begins at 0.7
    bool another;  // or nothing
  };
  for (const Case& c :
       {Case{48000, 0.2, true}, Case{48000, 0.2, false}, Case{44100, 0.2, true},
        Case{44100, 0.2, false}, Case{48000, 0.9, false}, Case{44100, 0.9, false}}) {
    SCOPED_TRACE(testing::Message() << c.rate << " Hz, " << c.heard << " s, " << c.another);
    Player h(Stream{});
    const Track a = h.noise("a.flac", 1.2, c.rate);
    const Track b = h.noise("b.flac", 0.8);
    const Track other = h.noise("other.flac", 0.7);
    const bool isRevoked = c.heard < 0.7;
    h.engine->setNextTrack(b);
    h.engine->play(a);
    ASSERT_TRUE(h.logged("🔀 Crossfade started → b.flac"));
    h.listen(c.heard);
    h.engine->setNextTrack(c.another ? std::optional(other) : std::nullopt);
    ASSERT_TRUE(!isRevoked || h.logged("🔗 Join taken back: b.flac"));
    ASSERT_TRUE(!isRevoked || !c.another || h.logged("🔀 Crossfade started → other.flac"));
    h.listenToEnd();

    const Samples older = h.alone(a);
    const Samples got = h.recording();
    EXPECT_EQ(isRevoked ? 0u : 1u, h.count("track b.flac crossfade"));
    if (isRevoked && !c.another) {
      expectSame(older, got, Stream{});
      continue;
    }
    const Samples newer = h.alone(isRevoked ? other : b);
    ASSERT_GT(got.size(), newer.size());
    expectSame(faded(older, got.size() - newer.size(), newer, Stream{}), got, Stream{});
  }
}

// CUE ranges on both sides, fades longer than either track, and a join without a fade after one.
TEST(Crossfade, RangesShortTracksAndWhatFollows) {
  Player h(Stream{});
  Track whole = h.noise("whole.flac", 2.0);
  const Track brief = h.noise("brief.flac", 0.2);
  const Track small = h.noise("small.flac", 0.3);
  const Track last = h.noise("last.flac", 0.3);
  Track range = h.noise("range.flac", 2.0);
  range.cueStartTime = 0.4;
  range.cueEndTime = 1.3;
  Track inner = range;
  inner.title = "inner";
  inner.filePath = whole.filePath;
  inner.cueEndTime.reset();

  struct Case {
    Track first;
    Track second;
    bool mayCrossfade;
  };
  for (const Case& c :
       {Case{range, inner, true}, Case{inner, brief, true}, Case{brief, small, true},
        Case{brief, whole, true}, Case{small, brief, false}}) {
    SCOPED_TRACE(c.first.title + " to " + c.second.title);
    Player player(Stream{}, VirtualClock::unpaced);
    const Samples older = player.alone(c.first);
    const Samples newer = player.alone(c.second);
    const Samples after = player.alone(last);
    // After the fade a plain join follows.
    const auto goOn = player.bus.subscribe<TrackDidChange>(
        Delivery::mainThread, [&](const TrackDidChange& event) {
          if (event.track.title == c.second.title) {
            player.engine->setNextTrack(last, /*mayCrossfade=*/false);
          }
        });
    player.engine->setNextTrack(c.second, c.mayCrossfade);
    player.playToEnd(c.first);

    const std::size_t fade = c.mayCrossfade ? fadeFrames(Stream{}) : 0;
    const std::size_t start = older.size() > fade ? older.size() - fade : 0;
    Samples expected = older;
    if (c.mayCrossfade) {
      expected = faded(older, start, newer, Stream{});
    } else {
      expected.insert(expected.end(), newer.begin(), newer.end());
    }
    expected.insert(expected.end(), after.begin(), after.end());
    expectSame(expected, player.recording(), Stream{});
    EXPECT_EQ(
        1u, player.count("track " + c.second.title + (c.mayCrossfade ? " crossfade" : " gapless")));
    EXPECT_EQ(1u, player.count("track last.flac gapless"));
  }
}

TEST(Crossfade, PausesAndStopsInTheMiddle) {
  Player h(Stream{});
  const Track a = h.noise("a.flac", 1.0);
  const Track b = h.noise("b.flac", 0.8);
  const Samples expected = faded(h.alone(a), 24000, h.alone(b), Stream{});
  h.engine->setNextTrack(b);
  h.engine->play(a);
  h.listen(0.75);
  h.engine->pause();
  h.engine->resume();
  h.listenToEnd();
  expectSame(expected, h.recording(), Stream{});

  h.events.clear();
  h.engine->setNextTrack(b);
  h.engine->play(a);
  h.listen(0.75);
  h.engine->stop();
  EXPECT_FALSE(h.engine->gaplessTransitionPending());
  EXPECT_EQ("a.flac", h.engine->lastTrack()->title);
  EXPECT_EQ(0u, h.count("track b.flac crossfade"));
}

}  // namespace
}  // namespace velorin
