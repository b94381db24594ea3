// Crossfades of the whole engine, sample by sample. The reference is the equal-power law over what
// each of the two tracks gives when it is played alone by the same engine.
#include "engine/EngineHarness.h"
#include "support/Eventually.h"

namespace velorin {
namespace {

using test::EngineHarness;

using Samples = std::vector<double>;  // of one channel; integers in their own steps

constexpr unsigned kRate = 48000;  // of the stream, whatever the files have
constexpr double kFade = 0.5;
constexpr std::size_t kFadeFrames = 24000;
constexpr std::uint32_t kBuffer = 480;

struct Player : EngineHarness {
  // `bits` of integer output, 0 for float.
  explicit Player(VirtualClock clock = VirtualClock::manual, unsigned bits_ = 0)
      : EngineHarness(describe(clock)), bits(bits_) {
    resampleTo(kRate);
    engine->setIntegerMode(bits > 0);
    engine->setCrossfadePlaybackEnabled(true);
    engine->setCrossfadeDuration(kFade);
  }

  static VirtualDeviceDescription describe(VirtualClock clock) {
    auto device = test::wideDevice(clock);
    device.bufferRange = {64, kBuffer};
    return device;
  }

  Track noise(const std::string& name, double seconds, unsigned rate = kRate) {
    const auto frames = static_cast<std::uint32_t>(seconds * rate);
    return file(
        name, {.bits = bits > 0 ? bits : 16, .sampleRate = rate, .frames = frames, .seed = ++seed});
  }

  // What the device was given so far, second channel.
  Samples recording() const {
    if (bits == 0) {
      const auto floats = recorder->floats();
      return {floats[1].begin(), floats[1].end()};
    }
    const auto integers = recorder->integers();
    Samples result(integers[1].begin(), integers[1].end());
    if (bits == 16) std::ranges::for_each(result, [](double& sample) { sample /= 65536; });
    return result;
  }

  Samples alone(const Track& track, std::optional<double> start = std::nullopt) const {
    Player other(VirtualClock::unpaced, bits);
    other.playToEnd(track, start);
    return other.recording();
  }

  // Runs the main thread, and looks again though nothing was posted there.
  static bool waitUntil(const std::function<bool()>& condition) {
    return test::eventually([&] {
      MainThread::instance().runReady();
      return condition();
    });
  }
  bool logged(const std::string& text) const {
    return waitUntil([&] { return log.contains(text); });
  }
  std::ptrdiff_t count(const std::string& event) const { return std::ranges::count(events, event); }

  // Takes so many frames as a device would, never more than there are.
  void listen(double seconds) {
    for (auto left = static_cast<std::uint32_t>(seconds * kRate); left > 0;) {
      const std::uint32_t frames = std::min(left, kBuffer);
      ASSERT_TRUE(waitUntil([&] { return engine->canRender(frames); }));
      pull(frames);
      left -= frames;
    }
  }
  void listenToEnd() {
    ASSERT_TRUE(waitUntil([&] {
      if (hardware.isRunning(device) && engine->canRender(kBuffer)) hardware.pull(device, kBuffer);
      return count("next auto") > 0;
    }));
  }

  const unsigned bits;
  std::uint32_t seed = 0;
};

// `older`, faded from frame `start` on into all of `newer`.
Samples faded(const Samples& older, std::size_t start, const Samples& newer, unsigned bits = 0) {
  Samples result(older.begin(), older.begin() + static_cast<std::ptrdiff_t>(start));
  for (std::size_t i = 0; i < newer.size(); ++i) {
    const double t = std::min(1.0, static_cast<double>(i) / static_cast<double>(kFadeFrames));
    const double old = start + i < older.size() ? older[start + i] : 0;
    const double mixed = std::sqrt(t) * newer[i] + std::sqrt(1 - t) * old;
    // Noise at full scale reaches beyond it in the mix.
    const double top = std::ldexp(1.0, bits > 16 ? 31 : 15);
    result.push_back(bits > 0 ? std::clamp(std::trunc(mixed), -top, top - 1) : mixed);
  }
  return result;
}

void expectSame(const Samples& expected, const Samples& got, double tolerance = 5e-7) {
  ASSERT_EQ(expected.size(), got.size());
  for (std::size_t i = 0; i < got.size(); ++i) {
    ASSERT_NEAR(expected[i], got[i], tolerance) << "frame " << i << " of " << got.size();
  }
}

TEST(Crossfade, FollowsTheLawWithAnyPairOfRates) {
  for (const unsigned bits : {0u, 16u, 24u}) {
    for (const auto& [oldRate, newRate] : {std::pair{44100u, 44100u}, std::pair{44100u, 48000u},
                                           std::pair{48000u, 44100u}, std::pair{48000u, 48000u}}) {
      SCOPED_TRACE(testing::Message() << oldRate << " to " << newRate << ", bits " << bits);
      Player h(VirtualClock::unpaced, bits);
      const Track a = h.noise("a.flac", 0.8, oldRate);
      const Track b = h.noise("b.flac", 0.7, newRate);
      const Samples older = h.alone(a);
      const Samples newer = h.alone(b);
      h.engine->setNextTrack(b);
      h.playToEnd(a);

      const Samples got = h.recording();
      ASSERT_GT(got.size(), newer.size());
      const std::size_t start = got.size() - newer.size();
      // The two end together; a running resampler's filter still holds a little of the old one.
      EXPECT_LE(start, older.size() - kFadeFrames);
      EXPECT_GE(start, older.size() - kFadeFrames - (oldRate == kRate ? 0 : 8192));
      expectSame(faded(older, start, newer, bits), got, bits > 0 ? 1 : 5e-7);
      EXPECT_EQ(1, h.count("track b.flac crossfade"));
    }
  }
}

TEST(Crossfade, IsAnnouncedAtItsAudibleEnd) {
  for (const unsigned newRate : {44100u, 48000u}) {
    Player h;
    const Track a = h.noise("a.flac", 1.0);
    const Track b = h.noise("b.flac", 1.0, newRate);
    h.engine->setNextTrack(b);
    h.engine->play(a);
    h.listen(0.99);
    EXPECT_NEAR(0.98, h.engine->currentPosition(), 1e-9) << "the old track's, a buffer behind";
    EXPECT_EQ("a.flac", h.engine->currentTrack()->title);
    EXPECT_TRUE(h.engine->gaplessTransitionPending());
    EXPECT_EQ(0, h.count("track b.flac crossfade"));
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
    Player h;
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

    EXPECT_EQ(1, h.count("track b.flac crossfade"));
    const Samples older = h.alone(a, 0.25);
    const Samples got = h.recording();
    const auto heard = static_cast<std::ptrdiff_t>(0.9 * kRate);
    const Samples rest(got.begin() + heard, got.end());
    expectSame(faded(older, rest.size() - newer.size(), newer), rest);
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
    Player h;
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
    EXPECT_EQ(isRevoked ? 0 : 1, h.count("track b.flac crossfade"));
    if (isRevoked && !c.another) {
      expectSame(older, got);
      continue;
    }
    const Samples newer = h.alone(isRevoked ? other : b);
    ASSERT_GT(got.size(), newer.size());
    expectSame(faded(older, got.size() - newer.size(), newer), got);
  }
}

// CUE ranges on both sides, fades longer than either track, and a join without a fade after one.
TEST(Crossfade, RangesShortTracksAndWhatFollows) {
  Player files;
  Track whole = files.noise("whole.flac", 2.0);
  Track range = files.noise("range.flac", 2.0);
  const Track brief = files.noise("brief.flac", 0.2);
  const Track small = files.noise("small.flac", 0.3);
  const Track last = files.noise("last.flac", 0.3);
  range.cueStartTime = 0.4;
  range.cueEndTime = 1.3;
  Track inner = whole;
  inner.cueStartTime = 0.4;

  struct Case {
    Track first;
    Track second;
    bool mayCrossfade;
  };
  for (const Case& c :
       {Case{range, inner, true}, Case{inner, brief, true}, Case{brief, small, true},
        Case{brief, whole, true}, Case{small, brief, false}}) {
    SCOPED_TRACE(c.first.title + " to " + c.second.title);
    Player h(VirtualClock::unpaced);
    const auto goOn =
        h.bus.subscribe<TrackDidChange>(Delivery::mainThread, [&](const TrackDidChange& event) {
          if (event.track.title == c.second.title) h.engine->setNextTrack(last, false);
        });
    h.engine->setNextTrack(c.second, c.mayCrossfade);
    h.playToEnd(c.first);

    const Samples older = h.alone(c.first);
    const Samples newer = h.alone(c.second);
    const std::size_t fade = std::min(kFadeFrames, older.size());
    Samples expected = c.mayCrossfade ? faded(older, older.size() - fade, newer) : older;
    const auto append = [&](const Samples& more) {
      expected.insert(expected.end(), more.begin(), more.end());
    };
    if (!c.mayCrossfade) append(newer);
    append(h.alone(last));
    expectSame(expected, h.recording());
    EXPECT_EQ(1u,
              h.count("track " + c.second.title + (c.mayCrossfade ? " crossfade" : " gapless")));
    EXPECT_EQ(1, h.count("track last.flac gapless"));
  }
}

TEST(Crossfade, PausesAndStopsInTheMiddle) {
  Player h;
  const Track a = h.noise("a.flac", 1.0);
  const Track b = h.noise("b.flac", 0.8);
  h.engine->setNextTrack(b);
  h.engine->play(a);
  h.listen(0.75);
  h.engine->pause();
  h.engine->resume();
  h.listenToEnd();
  expectSame(faded(h.alone(a), 24000, h.alone(b)), h.recording());

  h.events.clear();
  h.engine->setNextTrack(b);
  h.engine->play(a);
  h.listen(0.75);
  h.engine->stop();
  EXPECT_FALSE(h.engine->gaplessTransitionPending());
  EXPECT_EQ("a.flac", h.engine->lastTrack()->title);
  EXPECT_EQ(0, h.count("track b.flac crossfade"));
}

}  // namespace
}  // namespace velorin
