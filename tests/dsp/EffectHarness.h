// What the tests of effects share: signals that are the same on every run, a run of an effect over
// one of them, and a look at what came out.
#pragma once

#include <cmath>
#include <complex>
#include <cstring>
#include <numbers>
#include <random>
#include <span>
#include <vector>

#include "dsp/DSPProcessor.h"
#include "dsp/filters/Biquad.h"
#include "foundation/Realtime.h"

namespace velorin::test {

/// Samples by channel, all of one length.
using Signal = std::vector<std::vector<float>>;

/// Block sizes over which an effect has to give the same output.
inline constexpr std::size_t kBlockSizes[] = {1, 7, 64, 512, 4096, 65536};

/// White, within -amplitude .. amplitude, another for every channel.
inline Signal noise(std::size_t channels, std::size_t frames, float amplitude = 0.5f,
                    unsigned seed = 1) {
  std::mt19937 bits(seed);
  Signal signal(channels, std::vector<float>(frames));
  for (auto& channel : signal) {
    for (float& sample : channel) {
      sample = amplitude * (static_cast<float>(bits() >> 8) / 8388608.0f - 1.0f);
    }
  }
  return signal;
}

/// The same in every channel.
inline Signal sine(std::size_t channels, std::size_t frames, double frequency, double rate,
                   double amplitude = 0.5) {
  std::vector<float> samples(frames);
  for (std::size_t i = 0; i < frames; ++i) {
    const double turns = std::fmod(frequency * static_cast<double>(i) / rate, 1.0);
    samples[i] = static_cast<float>(amplitude * std::sin(2 * std::numbers::pi * turns));
  }
  return Signal(channels, samples);
}

/// 1 at one frame of every channel.
inline Signal impulse(std::size_t channels, std::size_t frames, std::size_t at = 0) {
  Signal signal(channels, std::vector<float>(frames));
  for (auto& channel : signal) channel[at] = 1;
  return signal;
}

/// A list that looks into the signal from a frame on.
inline AudioBufferList listOf(Signal& signal, std::size_t from, std::size_t frames) {
  AudioBufferList list;
  list.bufferCount = static_cast<std::uint32_t>(signal.size());
  for (std::size_t i = 0; i < signal.size(); ++i) {
    list.buffers[i] = {static_cast<std::uint32_t>(frames * sizeof(float)), signal[i].data() + from};
  }
  return list;
}

/// What the effect makes of the signal in blocks of a size (the last one is what is left), under
/// the rules of the render thread.
inline Signal run(DSPProcessor& effect, Signal signal, double rate, std::size_t block = 512) {
  const std::size_t frames = signal.empty() ? 0 : signal[0].size();
  for (std::size_t from = 0; from < frames; from += block) {
    const std::size_t count = std::min(block, frames - from);
    AudioBufferList list = listOf(signal, from, count);
    const realtime::Scope scope;
    effect.process(list, static_cast<std::int64_t>(count), rate);
  }
  return signal;
}

/// The same bits, so that -0 is not 0 and a NaN equals itself.
inline bool identical(const Signal& a, const Signal& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i].size() != b[i].size() ||
        std::memcmp(a[i].data(), b[i].data(), a[i].size() * sizeof(float)) != 0) {
      return false;
    }
  }
  return true;
}

/// True when a block of noise passes through unchanged.
inline bool passesDry(DSPProcessor& effect, double rate, std::size_t channels = 2,
                      std::size_t frames = 512) {
  const Signal in = noise(channels, frames);
  return identical(run(effect, in, rate, frames), in);
}

/// A section, sample by sample, as the recursion says.
class PlainSection {
 public:
  explicit PlainSection(const BiquadCoefficients& c) : _c(c) {}
  double next(double x) {
    const double y = _c.b0 * x + _s1;
    _s1 = (_c.b1 * x + _s2) - _c.a1 * y;
    _s2 = _c.b2 * x - _c.a2 * y;
    return y;
  }

 private:
  BiquadCoefficients _c;
  double _s1 = 0;
  double _s2 = 0;
};

/// The largest difference of two samples at one place; infinite when one of them is not finite.
inline double largestDifference(const Signal& a, const Signal& b) {
  double largest = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    for (std::size_t k = 0; k < a[i].size(); ++k) {
      const double difference = std::fabs(static_cast<double>(a[i][k]) - b[i][k]);
      if (!(difference <= largest)) largest = std::isfinite(difference) ? difference : INFINITY;
    }
  }
  return largest;
}

/// Sum of x[n] e^(-jwn): of an impulse response, the frequency response.
inline std::complex<double> transformAt(std::span<const float> samples, double frequency,
                                        double rate) {
  const auto step = std::polar(1.0, -2 * std::numbers::pi * frequency / rate);
  std::complex<double> turn = 1;
  std::complex<double> sum = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    if (i % 4096 == 0) {  // the recurrence drifts
      const double turns = std::fmod(frequency * static_cast<double>(i) / rate, 1.0);
      turn = std::polar(1.0, -2 * std::numbers::pi * turns);
    }
    sum += static_cast<double>(samples[i]) * turn;
    turn *= step;
  }
  return sum;
}

/// Amplitude of the sine of a frequency within the samples; exact over whole periods.
inline double amplitudeAt(std::span<const float> samples, double frequency, double rate) {
  return 2 * std::abs(transformAt(samples, frequency, rate)) / static_cast<double>(samples.size());
}

/// How far the response of a filter to an impulse lies from a magnitude, in dB, at the worst of the
/// frequencies a third of an octave apart from 20 Hz to 0.45 of the rate. Where less than -100 dB
/// is expected that counts as -100 dB. `seconds`: until what rings has faded.
template <class Magnitude>
double responseErrorDB(DSPProcessor& effect, double rate, double seconds, Magnitude&& expected) {
  constexpr double kLeast = 1e-5;
  const Signal out = run(effect, impulse(1, static_cast<std::size_t>(rate * seconds)), rate);
  double worst = 0;
  for (double f = 20; f < 0.45 * rate; f *= std::exp2(1.0 / 3)) {
    const double measured = std::max(std::abs(transformAt(out[0], f, rate)), kLeast);
    const double error = std::fabs(20 * std::log10(measured / std::max(expected(f), kLeast)));
    if (!(error <= worst)) worst = error;
  }
  return worst;
}

/// The rates at which filters are measured, Hz.
inline constexpr double kRates[] = {44100, 48000, 96000, 192000, 384000};

}  // namespace velorin::test
