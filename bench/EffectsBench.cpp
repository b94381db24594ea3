// What the effects take of a core: each alone, and all of them in one chain.
#include <fmt/format.h>

#include <numbers>
#include <random>

#include "bench/Bench.h"
#include "dsp/DSPEffects.h"

namespace velorin::bench {
namespace {

constexpr std::size_t kFrames = 1 << 16;
constexpr std::size_t kBlocks[] = {64, 512, 4096};

// 3 % of a core at 48 kHz are 12 % at 192 kHz: of both, nanoseconds for each stereo frame.
constexpr double kBudget = 625;

HeadphoneProfile profileOfTen() {
  HeadphoneProfile profile;
  profile.preamp = -6;
  for (int i = 0; i < 10; ++i) {
    profile.filters.push_back({PEQFilterType::peaking, 40.0 * std::exp2(i * 0.9), 5.0 - i, 1.4});
  }
  return profile;
}

/// All effects, each at its most laborious.
class Rig {
 public:
  explicit Rig(double rate) : _rate(rate), _left(kFrames), _right(kFrames) {
    std::vector<DSPChainEntry> entries;
    for (const DSPEffectType type : allEffectTypes()) entries.push_back({"", type, true, {}});
    _effects.applyChain(entries);
    _effects.formatChanged(rate, 2);
    auto bands = flatBands();
    for (std::size_t i = 0; i < bands.size(); ++i) bands[i].gain = i % 2 == 0 ? 3 : -3;
    _effects.equalizer.setBands(bands);
    _effects.headphoneProfile.loadProfile(profileOfTen(), rate, 2);
    _effects.preAmp.setGain(-6);
    _effects.replayGain.setTrackGain(-6, 0.9);
    _effects.stereoWidener.setWidth(1.2);
    _effects.stereoWidener.setAlgorithm(StereoWidenerDSP::Algorithm::frequencyDependent);
    _effects.phaseInvert.setChannel(PhaseInvertDSP::Channel::both);
    _effects.balance.setBalance(0.1);
    _effects.dither.setAlgorithm(DitherDSP::Algorithm::fWeighted);
    _effects.spatialAudio.setAzimuth(35);
    _effects.loudnessCompensation.setVolume(0.3);

    // Chords in a little noise.
    std::mt19937 bits(1);
    for (std::size_t i = 0; i < kFrames; ++i) {
      double sum = 0;
      for (const double f : {110.0, 277.18, 659.26, 1760.0}) {
        sum += 0.1 * std::sin(2 * std::numbers::pi * f * static_cast<double>(i) / rate);
      }
      _left[i] = static_cast<float>(sum + 1e-3 * (bits() / 2147483648.0 - 1));
      _right[i] = static_cast<float>(0.8 * sum + 1e-3 * (bits() / 2147483648.0 - 1));
    }
  }

  /// Nanoseconds for each frame that `process(list, frames)` takes in blocks of a size, over a
  /// signal that is written anew each time.
  template <class Process>
  double nanoseconds(std::size_t block, Process&& process) {
    std::vector<float> left(block);
    std::vector<float> right(block);
    AudioBufferList list;
    list.bufferCount = 2;
    const auto bytes = static_cast<std::uint32_t>(block * sizeof(float));
    list.buffers[0] = {bytes, left.data()};
    list.buffers[1] = {bytes, right.data()};
    const double seconds = cpuSecondsOf(15, [&] {
      for (std::size_t from = 0; from < kFrames; from += block) {
        std::copy_n(_left.data() + from, block, left.data());
        std::copy_n(_right.data() + from, block, right.data());
        process(list, static_cast<std::int64_t>(block));
        keep(left[0]);
      }
    });
    return seconds / kFrames * 1e9;
  }

  double alone(DSPEffect& effect, std::size_t block) {
    return nanoseconds(block, [&](AudioBufferList& list, std::int64_t frames) {
      effect.process(list, frames, _rate);
    });
  }
  double together(std::size_t block) {
    return nanoseconds(block, [&](AudioBufferList& list, std::int64_t frames) {
      _effects.headroomDSP.process(list, frames);
      _effects.chain.process(list, frames, _rate);
      _effects.clippingDetector.process(list, frames);
    });
  }
  double copyAlone(std::size_t block) {
    return nanoseconds(block, [](AudioBufferList&, std::int64_t) {});
  }

  DSPEffects& effects() { return _effects; }

 private:
  const double _rate;
  DSPEffects _effects;
  std::vector<float> _left;
  std::vector<float> _right;
};

void measureEach(BenchReport& report, Rig& bench, const std::string& rateName, double rate) {
  for (const std::size_t block : kBlocks) {
    const auto add = [&](std::string_view what, double ns) {
      const std::string name = fmt::format("{}, {}, blocks of {}", what, rateName, block);
      report.add(name, ns, "ns/frame");
      report.add(name, ns * rate * 1e-7, "% of a core");
    };
    add("no effect", bench.copyAlone(block));
    for (const DSPEffectType type : allEffectTypes()) {
      add(namesOf(type).displayName, bench.alone(bench.effects().effect(type), block));
    }
    DSPEffects& effects = bench.effects();
    effects.dither.setAlgorithm(DitherDSP::Algorithm::tpdf);
    add("Dither, plain", bench.alone(effects.dither, block));
    effects.dither.setAlgorithm(DitherDSP::Algorithm::fWeighted);
    effects.stereoWidener.setAlgorithm(StereoWidenerDSP::Algorithm::haas);
    add("Stereo Widener, Haas", bench.alone(effects.stereoWidener, block));
    effects.stereoWidener.setAlgorithm(StereoWidenerDSP::Algorithm::frequencyDependent);
  }
}

const Registration kEffects("effects", [](BenchReport& report) {
  for (const double rate : {48'000.0, 192'000.0}) {
    Rig bench(rate);
    const std::string name = fmt::format("{:g} kHz", rate / 1000);
    for (const std::size_t block : kBlocks) {
      const double ns = bench.together(block);
      const std::string all = fmt::format("all 18, {}, blocks of {}", name, block);
      report.add(all, ns, "ns/frame", atMost(kBudget));
      report.add(all, ns * rate * 1e-7, "% of a core", atMost(kBudget * rate * 1e-7));
    }
    measureEach(report, bench, name, rate);
  }
});

}  // namespace
}  // namespace velorin::bench
