// What holds for every effect: parameters by name, broken and missing audio, the rules of the
// render thread, edits while it renders.
#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <set>
#include <thread>

#include "dsp/DSPEffects.h"
#include "dsp/EffectHarness.h"
#ifdef VELORIN_REALTIME_GUARD
#include "support/RealtimeGuard.h"
#endif

namespace velorin {
namespace {

using test::Signal;

constexpr double kRate = 48000;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

HeadphoneProfile profileOfTen() {
  HeadphoneProfile profile;
  profile.id = "ten";
  profile.preamp = -6;
  for (int i = 0; i < 10; ++i) {
    profile.filters.push_back({PEQFilterType::peaking, 40.0 * std::exp2(i * 0.9), 5.0 - i, 1.4});
  }
  return profile;
}

// Every effect, set so that it changes what passes, in the order of the list.
struct AllEffects : DSPEffects {
  explicit AllEffects(double rate = kRate, std::size_t channels = 2) {
    std::vector<DSPChainEntry> entries;
    for (const DSPEffectType type : allEffectTypes()) entries.push_back({"", type, true, {}});
    applyChain(entries);
    formatChanged(rate, channels);
    auto bands = flatBands();
    for (EQBand& band : bands) band.gain = 1;
    equalizer.setBands(bands);
    headphoneProfile.loadProfile(profileOfTen(), rate, channels);
    preAmp.setGain(-3);
    replayGain.setTrackGain(-4, 0.5);
    stereoWidener.setWidth(1.4);
    stereoWidener.setAlgorithm(StereoWidenerDSP::Algorithm::frequencyDependent);
    balance.setBalance(0.2);
    spatialAudio.setAzimuth(-60);
    loudnessCompensation.setVolume(0.3);
    dither.setAlgorithm(DitherDSP::Algorithm::lipshitz);
  }
};

template <class Work>
void forEachEffect(DSPEffects& effects, Work&& work) {
  for (const DSPEffectType type : allEffectTypes()) {
    SCOPED_TRACE(namesOf(type).rawValue);
    work(effects.effect(type));
  }
}

TEST(Effects, ParametersAreWhatIsSetHeldWithinLimits) {
  AllEffects effects;
  forEachEffect(effects, [](DSPEffect& effect) {
    std::set<std::string_view> names;
    for (const EffectParameter& parameter : effect.parameters()) {
      SCOPED_TRACE(parameter.name);
      EXPECT_TRUE(names.insert(parameter.name).second);
      EXPECT_LT(parameter.minimum, parameter.maximum);
      if (!parameter.choices.empty()) {
        EXPECT_EQ(parameter.maximum, static_cast<double>(parameter.choices.size() - 1));
      }
      const bool isWhole =
          !parameter.choices.empty() || parameter.unit == "bit" || parameter.unit == "samples";
      for (const double share : {0.0, 0.25, 0.5, 0.75, 1.0}) {
        double value = parameter.minimum + share * (parameter.maximum - parameter.minimum);
        if (isWhole) value = std::round(value);
        parameter.set(value);
        EXPECT_NEAR(parameter.get(), value, 1e-6 * std::fabs(value));
      }
      for (const double absurd : {1e30, -1e30, 1e300, kInfinity, -kInfinity, kNaN}) {
        parameter.set(absurd);
        EXPECT_TRUE(std::isfinite(parameter.get()));
      }
      parameter.set(parameter.defaultValue);
      EXPECT_NEAR(parameter.get(), parameter.defaultValue, 1e-6);
    }
  });
  // A new one has the defaults that it names.
  DSPEffects fresh;
  forEachEffect(fresh, [](DSPEffect& effect) {
    EXPECT_FALSE(effect.isEnabled());
    for (const EffectParameter& parameter : effect.parameters()) {
      EXPECT_NEAR(parameter.get(), parameter.defaultValue, 1e-7) << parameter.name;
    }
  });
}

TEST(Effects, StayFiniteWhateverIsSet) {
  for (const double absurd : {1e30, -1e30, kInfinity, -kInfinity, kNaN, 0.0}) {
    AllEffects effects;
    forEachEffect(effects, [&](DSPEffect& effect) {
      for (const EffectParameter& parameter : effect.parameters()) parameter.set(absurd);
      const Signal in = test::noise(2, 3000);
      EXPECT_LT(test::largestDifference(test::run(effect, in, kRate), in), 1e6) << absurd;
    });
  }
}

TEST(Effects, DoNothingUnlessThereIsSomethingToDo) {
  AllEffects effects(kRate, 3);
  forEachEffect(effects, [](DSPEffect& effect) {
    Signal signal = test::noise(3, 512);
    const Signal before = signal;
    AudioBufferList list = test::listOf(signal, 0, 512);
    effect.process(list, 0, kRate);
    effect.process(list, -1, kRate);
    AudioBufferList nobody = list;
    for (AudioBuffer& buffer : nobody.buffers) buffer.data = nullptr;
    effect.process(nobody, 512, kRate);
    nobody.bufferCount = 0;
    effect.process(nobody, 512, kRate);
    EXPECT_TRUE(test::identical(signal, before));
  });
}

TEST(Effects, ForgetBrokenSamples) {
  for (const float broken :
       {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity()}) {
    AllEffects effects;
    forEachEffect(effects, [&](DSPEffect& effect) {
      Signal in = test::noise(2, 16384);
      in[0][100] = broken;
      in[1][300] = broken;
      const Signal out = test::run(effect, in, kRate);
      // The longest memory is the room's, of 4096 samples.
      for (std::size_t channel = 0; channel < 2; ++channel) {
        const std::vector<float> late(out[channel].begin() + 8192, out[channel].end());
        EXPECT_LT(test::largestDifference({late}, {std::vector<float>(late.size())}), 8) << broken;
      }
    });
  }
}

TEST(Effects, RunInOneChainOnOneToEightChannels) {
#ifdef VELORIN_REALTIME_GUARD
  ASSERT_TRUE(test::realtimeGuardIsActive());
#endif
  for (const double rate : test::kRates) {
    for (const std::size_t channels : {1u, 2u, 3u, 6u, 8u}) {
      AllEffects effects(rate, channels);
      Signal signal = test::noise(channels, 10000);
      const Signal before = signal;
      for (std::size_t from = 0; from + 4096 <= 10000; from += 1000) {
        AudioBufferList list = test::listOf(signal, from, 1000);
        const realtime::Scope scope;
        effects.headroomDSP.process(list, 1000);
        effects.chain.process(list, 1000, rate);
        effects.clippingDetector.process(list, 1000);
      }
      EXPECT_LT(test::largestDifference(signal, before), 8) << rate << ", " << channels;
      EXPECT_FALSE(test::identical(signal, before));
    }
  }
}

TEST(Effects, TheSizeOfBlocksDoesNotShow) {
  // Those left out draw noise or repair by the block, or take no long ones: see their own tests.
  using enum DSPEffectType;
  constexpr DSPEffectType kOthers[] = {declicker, dither, vinylSimulator, stereoWidener};
  const Signal in = test::noise(2, 65536);
  for (const DSPEffectType type : allEffectTypes()) {
    if (std::ranges::count(kOthers, type) > 0) continue;
    AllEffects whole;
    const Signal expected = test::run(whole.effect(type), in, kRate, 65536);
    for (const std::size_t block : test::kBlockSizes) {
      AllEffects effects;
      EXPECT_TRUE(test::identical(test::run(effects.effect(type), in, kRate, block), expected))
          << namesOf(type).rawValue << ", " << block;
    }
  }
}

TEST(Effects, AreEditedWhileTheyRender) {
  AllEffects effects;
  std::atomic<bool> stop{false};
  std::atomic<int> calls{0};
  std::atomic<int> broken{0};
  std::thread renderer([&] {
    const Signal in = test::noise(2, 64);
    while (!stop) {
      const double rate = calls % 32 == 0 ? 44100 : kRate;
      Signal signal = in;
      AudioBufferList list = test::listOf(signal, 0, 64);
      {
        const realtime::Scope scope;
        effects.headroomDSP.process(list, 64);
        effects.chain.process(list, 64, rate);
        effects.clippingDetector.process(list, 64);
      }
      if (!(test::largestDifference(signal, in) < 1e6)) ++broken;
      ++calls;
    }
  });
  // Two editors of everything; a third tells formats and switches.
  const auto edit = [&](unsigned seed) {
    std::mt19937 bits(seed);
    while (!stop) {
      forEachEffect(effects, [&](DSPEffect& effect) {
        for (const EffectParameter& parameter : effect.parameters()) {
          const double share = static_cast<double>(bits() % 17) / 16;
          parameter.set(parameter.minimum + share * (parameter.maximum - parameter.minimum));
          EXPECT_TRUE(std::isfinite(parameter.get()));
        }
      });
    }
  };
  std::thread editor(edit, 1);
  std::thread otherEditor(edit, 2);
  for (int turn = 0; turn < 60 || calls < 300; ++turn) {
    forEachEffect(effects, [&](DSPEffect& effect) {
      effect.setEnabled(turn % 5 != 0);
      effect.sampleRateChanged(turn % 2 == 0 ? kRate : 44100);
    });
    effects.crossfeed.formatChanged(turn % 2 == 0 ? kRate : 44100);
    effects.equalizer.configure(turn % 2 == 0 ? kRate : 44100, 2);
    effects.equalizer.setBands(std::vector<EQBand>(31, {.frequency = 1000, .gain = turn % 9 - 4.}));
    EXPECT_TRUE(effects.equalizer.unusableBands().empty());
    effects.headphoneProfile.loadProfile(profileOfTen(), turn % 4 == 0 ? kRate : 44100, 2);
    if (turn % 3 == 0) effects.headphoneProfile.clearProfile();
    EXPECT_EQ(effects.headphoneProfile.profileId().has_value(), turn % 3 != 0);
    effects.loudnessCompensation.setVolume(turn % 10 * 0.1);
    effects.replayGain.setTrackGain(turn % 7 - 3, 0.1 * (turn % 11));
    effects.headroomDSP.setHeadroom(turn % 4);
    if (turn % 6 == 0) effects.headroomDSP.reset();
    EXPECT_GE(effects.clippingDetector.peakL(), 0);
    const std::uint64_t clicks = effects.declicker.clicksFound();
    EXPECT_LE(clicks, 128 * effects.declicker.processCalls()) << "64 samples in either channel";
  }
  stop = true;
  renderer.join();
  editor.join();
  otherEditor.join();
  EXPECT_EQ(broken, 0);

  // What was set last is what runs: no filter of an older setting has come out on top.
  effects.subsonicFilter.setCutoff(40);
  effects.subsonicFilter.setEnabled(true);
  effects.subsonicFilter.sampleRateChanged(kRate);
  SubsonicFilterDSP fresh;
  fresh.setEnabled(true);
  fresh.setCutoff(40);
  fresh.sampleRateChanged(kRate);
  const Signal in = test::noise(2, 2000);
  EXPECT_TRUE(
      test::identical(test::run(effects.subsonicFilter, in, kRate), test::run(fresh, in, kRate)));
}

}  // namespace
}  // namespace velorin
