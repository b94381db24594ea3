// What the resampler does to a signal, and how fast.
//
// The filter is measured from its impulse response. Upsampling by a rational factor is a linear,
// time-invariant filter at the source's rate seen on the finer grid, so one impulse shows both
// passband and images. Downsampling folds instead, so its stopband is measured with tones: one
// above the target's Nyquist frequency must leave nothing.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

#include "bench/Bench.h"
#include "bench/Spectrum.h"
#include "engine/resampling/SoxrResampler.h"

namespace velorin::bench {
namespace {

struct Rates {
  double source;
  double target;
};

std::vector<double> convert(Rates rates, const std::vector<double>& input) {
  const auto resampler = SoxrResampler::create(rates.source, rates.target, 1);
  if (resampler == nullptr) throw std::runtime_error("no resampler");
  std::vector<double> output;
  for (std::size_t at = 0; at < input.size(); at += SoxrResampler::kMaximumInput) {
    const auto count = static_cast<std::uint32_t>(
        std::min<std::size_t>(SoxrResampler::kMaximumInput, input.size() - at));
    const auto some = resampler->process(0, input.data() + at, count);
    output.insert(output.end(), some.begin(), some.end());
  }
  for (;;) {
    const auto some = resampler->drain(0, SoxrResampler::kMaximumInput);
    if (some.empty()) return output;
    output.insert(output.end(), some.begin(), some.end());
  }
}

std::vector<double> tone(double frequency, double rate, std::size_t count) {
  std::vector<double> samples(count);
  for (std::size_t i = 0; i < count; ++i) {
    samples[i] = std::sin(2 * std::numbers::pi * frequency * static_cast<double>(i) / rate);
  }
  return samples;
}

// Passband and, upsampling, images, from the impulse response.
void measureResponse(BenchReport& report, const std::string& name, Rates rates) {
  std::vector<double> impulse(1 << 17);
  impulse[impulse.size() / 2] = 1;
  const std::vector<double> response = convert(rates, impulse);
  const auto bins = transform(response);
  const double lowerNyquist = std::min(rates.source, rates.target) / 2;
  // An impulse of one source sample holds 1/ratio of the level on the target's grid.
  const double gain = rates.source / rates.target;
  double flatness = 0;
  double worstImage = -400;
  double edge = 0;
  bool isEdgeFound = false;
  for (std::size_t i = 0; i < bins.size() / 2; ++i) {
    const double frequency =
        static_cast<double>(i) * rates.target / static_cast<double>(bins.size());
    const double level = decibels(std::abs(bins[i]) * gain);
    if (frequency <= 0.96 * lowerNyquist) flatness = std::max(flatness, std::fabs(level));
    if (frequency >= rates.source / 2) worstImage = std::max(worstImage, level);
    // Where the response has fallen by 0.1 dB.
    if (!isEdgeFound && level < -0.1) {
      isEdgeFound = true;
      edge = frequency / lowerNyquist;
    }
  }
  report.add(name + " passband ripple to 0.96 Nyquist", flatness, "dB", atMost(0.01));
  if (isEdgeFound) report.add(name + " -0.1 dB edge", edge, "of Nyquist", atLeast(0.96));
  if (rates.target > rates.source) report.add(name + " images", worstImage, "dB", atMost(-170));
}

// What is left, at worst, of tones that the target cannot hold.
void measureAliases(BenchReport& report, const std::string& name, Rates rates) {
  double worst = -400;
  const double nyquist = rates.target / 2;
  for (const double factor : {1.001, 1.01, 1.05, 1.3, 1.7, 2.0}) {
    const double frequency = nyquist * factor;
    if (frequency >= rates.source / 2) continue;
    const std::vector<double> left =
        convert(rates, tone(frequency, rates.source, static_cast<std::size_t>(rates.source)));
    // The middle half: a tone that starts and stops at once has parts below Nyquist.
    double squares = 0;
    const std::size_t from = left.size() / 4;
    const std::size_t to = 3 * left.size() / 4;
    for (std::size_t i = from; i < to; ++i) squares += left[i] * left[i];
    worst = std::max(worst, decibels(std::sqrt(2 * squares / static_cast<double>(to - from))));
  }
  report.add(name + " aliases", worst, "dB", atMost(-170));
}

void measureAccuracy(BenchReport& report, const std::string& name, Rates rates) {
  constexpr double kFrequency = 997;
  const std::vector<double> output =
      convert(rates, tone(kFrequency, rates.source, static_cast<std::size_t>(2 * rates.source)));
  const std::vector<double> ideal = tone(kFrequency, rates.target, output.size());
  double squares = 0;
  const std::size_t from = output.size() / 4;
  const std::size_t to = 3 * output.size() / 4;
  for (std::size_t i = from; i < to; ++i) squares += std::pow(output[i] - ideal[i], 2);
  report.add(name + " error of a 997 Hz sine",
             decibels(std::sqrt(squares / static_cast<double>(to - from))), "dBFS", atMost(-150));
}

void measureSpeed(BenchReport& report, const std::string& name, Rates rates) {
  constexpr double kSeconds = 20;
  const std::vector<double> input =
      tone(1000, rates.source, static_cast<std::size_t>(kSeconds * rates.source));
  const auto resampler = SoxrResampler::create(rates.source, rates.target, 2);
  if (resampler == nullptr) throw std::runtime_error("no resampler");
  const double seconds = cpuSecondsOf(3, [&] {
    resampler->clear();
    for (std::size_t at = 0; at < input.size(); at += SoxrResampler::kMaximumInput) {
      const auto count = static_cast<std::uint32_t>(
          std::min<std::size_t>(SoxrResampler::kMaximumInput, input.size() - at));
      for (std::uint32_t channel = 0; channel < 2; ++channel) {
        keep(resampler->process(channel, input.data() + at, count));
      }
    }
  });
  report.add(name + " speed, stereo, one core", kSeconds / seconds, "x real time", atLeast(250));
}

const Registration kResampler("resampler", [](BenchReport& report) {
  for (const Rates rates : {Rates{44'100, 96'000}, Rates{96'000, 44'100}, Rates{44'100, 48'000},
                            Rates{44'100, 192'000}}) {
    const std::string name =
        fmt::format("{:g} to {:g} kHz", rates.source / 1000, rates.target / 1000);
    measureResponse(report, name, rates);
    if (rates.target < rates.source) measureAliases(report, name, rates);
    measureAccuracy(report, name, rates);
    measureSpeed(report, name, rates);
  }
});

}  // namespace
}  // namespace velorin::bench
