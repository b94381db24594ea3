#include "dsp/filters/BiquadCascade.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/vector/BiquadKernels.h"
#include "platform/vector/FlushDenormals.h"
#include "platform/vector/PCMPacking.h"
#include "platform/vector/Vector.h"

namespace velorin {
namespace {

// Frames worked on at a time: the doubles of a tile stay in the first-level cache through all
// passes over them.
constexpr std::size_t kTile = 512;

constexpr std::size_t paddedTo(std::size_t multiple, std::size_t count) {
  return (count + multiple - 1) / multiple * multiple;
}

}  // namespace

struct BiquadCascade::Impl {
  std::size_t sections;
  std::size_t channels;
  std::size_t run;                   // doubles of one run of vector::BiquadPairs
  std::vector<double> coefficients;  // a run each of b0, b1, b2, a1, a2
  std::vector<double> states;        // for each two channels a run each of s1, s2
  std::vector<double> loneState;     // of a channel that is filtered by itself
  alignas(64) float words[2 * kTile];
  alignas(64) float unused[kTile];
  alignas(64) double samples[2 * kTile];

  Impl(std::span<const BiquadCoefficients> given, std::size_t channelCount)
      : sections(given.size()),
        channels(channelCount),
        run(2 * paddedTo(vector::kBiquadPadding, given.size())),
        coefficients(5 * run),
        states(paddedTo(2, channelCount) * run),
        loneState(2 * run) {
    for (std::size_t i = 0; i < 2 * sections; ++i) {
      const BiquadCoefficients& section = given[i / 2];
      const double values[] = {section.b0, section.b1, section.b2, section.a1, section.a2};
      for (std::size_t k = 0; k < std::size(values); ++k) coefficients[k * run + i] = values[k];
    }
  }

  double* stateOf(std::size_t channel) noexcept { return states.data() + channel / 2 * 2 * run; }

  // Filters two streams with the state of a pair of channels, or with loneState.
  void filter(double* state, const float* const* in, float* const* out,
              std::size_t frames) noexcept {
    const vector::FlushDenormals flush;
    const double* const c = coefficients.data();
    const vector::BiquadPairs pairs = {sections,    c,           c + run, c + 2 * run,
                                       c + 3 * run, c + 4 * run, state,   state + run};
    auto* const bytes = reinterpret_cast<std::byte*>(words);
    for (std::size_t start = 0; start < frames; start += kTile) {
      const std::size_t count = std::min(kTile, frames - start);
      const float* const from[] = {in[0] + start, in[1] + start};
      // A stream alone leaves the same result twice, of which one goes nowhere.
      float* const to[] = {out[0] + start, out[1] == nullptr ? unused : out[1] + start};
      vector::interleave(from, 2, count, vector::PCMWord::float32, bytes);
      vector::floatToDouble(words, samples, 2 * count);
      vector::filterPairs(pairs, samples, count);
      vector::doubleToFloat(samples, words, 2 * count);
      vector::deinterleave(bytes, vector::PCMWord::float32, 2, count, to);
    }
    const unsigned broken = vector::brokenStreams(state, run);
    for (std::size_t i = 0; broken != 0 && i < 2 * run; ++i) {
      if ((broken >> i % 2 & 1) != 0) state[i] = 0;
    }
  }
};

BiquadCascade::BiquadCascade(std::span<const BiquadCoefficients> sections, std::size_t channels)
    : _impl(std::make_unique<Impl>(sections, channels)) {}

BiquadCascade::~BiquadCascade() = default;

void BiquadCascade::process(float* const* data, std::size_t frames) noexcept {
  if (sections() == 0) return;
  std::size_t channel = 0;
  for (; channel + 1 < channels(); channel += 2) {
    _impl->filter(_impl->stateOf(channel), data + channel, data + channel, frames);
  }
  if (channel < channels()) processChannel(channel, data[channel], data[channel], frames);
}

void BiquadCascade::processChannel(std::size_t channel, const float* in, float* out,
                                   std::size_t frames) noexcept {
  if (sections() == 0) {
    std::memmove(out, in, frames * sizeof *in);
    return;
  }
  double* const state = _impl->stateOf(channel) + channel % 2;
  std::vector<double>& lone = _impl->loneState;
  for (std::size_t i = 0; i < lone.size(); i += 2) lone[i] = lone[i + 1] = state[i];
  const float* const twice[] = {in, in};
  float* const once[] = {out, nullptr};
  _impl->filter(lone.data(), twice, once, frames);
  for (std::size_t i = 0; i < lone.size(); i += 2) state[i] = lone[i];
}

void BiquadCascade::reset() noexcept {
  std::fill(_impl->states.begin(), _impl->states.end(), 0.0);
}

void BiquadCascade::takeState(const BiquadCascade& other) noexcept {
  if (sections() == other.sections() && channels() == other.channels()) {
    std::ranges::copy(other._impl->states, _impl->states.begin());
  }
}

std::size_t BiquadCascade::sections() const noexcept {
  return _impl->sections;
}

std::size_t BiquadCascade::channels() const noexcept {
  return _impl->channels;
}

}  // namespace velorin
