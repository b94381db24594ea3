// The filters under the equalizer and the declicker: 31 bands beside FFmpeg's, and medians.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

#include "bench/Bench.h"
#include "bench/FilterGraph.h"
#include "dsp/filters/BiquadCascade.h"
#include "dsp/filters/RunningMedian.h"
#include "platform/vector/Vector.h"
#include "platform/vector/VectorKernels.h"

namespace velorin::bench {
namespace {

constexpr int kRate = 48000;
constexpr std::size_t kFrames = kRate;
constexpr int kRuns = 7;

struct Band {
  double frequency;
  double q = 4.318;  // a third of an octave
  double gain;
};

std::vector<Band> thirdOctaves() {
  std::vector<Band> bands;
  for (int k = 0; k < 31; ++k) {
    bands.push_back({.frequency = 20 * std::exp2(k / 3.0), .gain = k % 2 == 0 ? 6.0 : -4.5});
  }
  return bands;
}

std::vector<BiquadCoefficients> sectionsOf(const std::vector<Band>& bands) {
  std::vector<BiquadCoefficients> sections;
  for (const Band& band : bands) {
    sections.push_back(biquad::peaking(kRate, band.frequency, band.q, band.gain));
  }
  return sections;
}

std::string filtersOf(const std::vector<Band>& bands) {
  std::string filters;
  for (const Band& band : bands) {
    filters += fmt::format("{}equalizer=f={:.9g}:t=q:w={:.9g}:g={:.9g}", filters.empty() ? "" : ",",
                           band.frequency, band.q, band.gain);
  }
  return filters;
}

struct Stereo {
  std::vector<float> left = std::vector<float>(kFrames);
  std::vector<float> right = std::vector<float>(kFrames);

  std::array<float*, 2> at(std::size_t frame) {
    return {left.data() + frame, right.data() + frame};
  }
};

Stereo noise() {
  Stereo signal;
  std::mt19937 random(1);
  for (std::size_t i = 0; i < kFrames; ++i) {
    signal.left[i] = static_cast<float>(random() / 4294967296.0 - 0.5);
    signal.right[i] = static_cast<float>(random() / 4294967296.0 - 0.5);
  }
  return signal;
}

void filterBlocks(BiquadCascade& cascade, Stereo& signal, std::size_t block) {
  for (std::size_t from = 0; from < kFrames; from += block) {
    cascade.process(signal.at(from).data(), std::min(block, kFrames - from));
  }
}

// Nanoseconds for a frame of the second of stereo. The signal is put back first, at no frame's
// cost worth mention: an equalizer that feeds on its own output would leave all range.
double nanosecondsAFrame(BiquadCascade& cascade, const Stereo& signal, std::size_t block) {
  Stereo work;
  const double seconds = cpuSecondsOf(kRuns, [&] {
    work = signal;
    filterBlocks(cascade, work, block);
  });
  return seconds / kFrames * 1e9;
}

// Largest difference of the two outputs, in dB of the largest sample.
double differenceInDecibels(const Stereo& a, const Stereo& b) {
  double difference = 0;
  double largest = 0;
  for (std::size_t i = 0; i < kFrames; ++i) {
    difference = std::max<double>(difference, std::abs(a.left[i] - b.left[i]));
    largest = std::max<double>(largest, std::abs(a.left[i]));
  }
  return 20 * std::log10(difference / largest);
}

const Registration kEqualizer("equalizer", [](BenchReport& report) {
  const std::vector<Band> bands = thirdOctaves();
  const std::vector<BiquadCoefficients> sections = sectionsOf(bands);
  const Stereo signal = noise();

  Stereo theirs = signal;
  FilterGraph graph(filtersOf(bands), kRate);
  Stereo in = signal;
  graph.process(in.at(0).data(), theirs.at(0).data(), kFrames, 4096);
  BiquadCascade cascade(sections, 2);
  Stereo ours = signal;
  filterBlocks(cascade, ours, 512);
  report.add("31 bands, difference from FFmpeg's", differenceInDecibels(ours, theirs), "dB",
             atMost(-60));

  // The block is the one that suits FFmpeg; ours is a render callback's.
  const double ffmpeg =
      cpuSecondsOf(kRuns,
                   [&] { graph.process(in.at(0).data(), theirs.at(0).data(), kFrames, 4096); }) /
      kFrames * 1e9;
  const double cost = nanosecondsAFrame(cascade, signal, 512);
  report.add("31 bands, stereo, blocks of 512", cost, "ns/frame", atMost(100));
  report.add("31 bands, stereo, blocks of 64", nanosecondsAFrame(cascade, signal, 64), "ns/frame",
             atMost(100));
  report.add("31 bands of FFmpeg, stereo", ffmpeg, "ns/frame");
  report.add("31 bands, times as fast as FFmpeg", ffmpeg / cost, "x", atLeast(5));
  report.add("31 bands, stereo at 192 kHz", cost * 192000 / 1e7, "% of a core", atMost(4));

  constexpr std::array kNames = {"scalar", "SSE2", "AVX2", "AVX-512"};
  const vector::Kernels* const chosen = &vector::activeKernels();
  for (const vector::Level level : vector::availableLevels()) {
    vector::setLevel(level);
    report.add(fmt::format("31 bands, stereo, {}", kNames[static_cast<std::size_t>(level)]),
               nanosecondsAFrame(cascade, signal, 512), "ns/frame");
  }
  for (const vector::Level level : vector::availableLevels()) {
    if (&vector::kernels(level) == chosen) vector::setLevel(level);
  }

  std::vector<float> medians(kFrames - kMedianWindow + 1);
  report.add(
      "median of 21",
      cpuSecondsOf(kRuns, [&] { medianOf21(signal.left.data(), medians.data(), medians.size()); }) /
          static_cast<double>(medians.size()) * 1e9,
      "ns/sample", atMost(50));
  std::vector<float> curved(kFrames);
  report.add(
      "tanh",
      cpuSecondsOf(kRuns, [&] { vector::tanh(signal.left.data(), curved.data(), curved.size()); }) /
          static_cast<double>(kFrames) * 1e9,
      "ns/sample");
});

}  // namespace
}  // namespace velorin::bench
