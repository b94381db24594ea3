#include "dsp/ChainResponse.h"

#include <cmath>
#include <complex>
#include <numbers>

namespace velorin {
namespace {

// Long enough for the filters at 20 Hz to have rung out.
constexpr double kSeconds = 1.5;
constexpr std::uint32_t kBlock = 4096;
// Small, so that a saturating effect shows its linear part.
constexpr float kImpulse = 0x1p-10f;
constexpr double kFloorDB = -200;
// What floats cannot hold: 20 lg(2^128 / kImpulse).
constexpr double kCeilingDB = 830.8;

bool hasResponse(DSPEffectType type) {
  return type != DSPEffectType::dither && type != DSPEffectType::declicker;
}

std::vector<double> frequencies(double sampleRate, std::size_t count) {
  constexpr double kLowest = 20;
  const double highest = std::min(20000.0, sampleRate / 2 * 0.999);
  std::vector<double> all;
  for (std::size_t i = 0; i < count; ++i) {
    const double part = count < 2 ? 0 : static_cast<double>(i) / static_cast<double>(count - 1);
    all.push_back(kLowest * std::pow(highest / kLowest, part));
  }
  return all;
}

/// |sum of x[n] e^(-jwn)| relative to the impulse, in dB.
double magnitudeDB(const std::vector<float>& x, double sampleRate, double frequency) {
  const double w = 2 * std::numbers::pi * frequency / sampleRate;
  // Horner's scheme from the last sample on: one complex product a sample.
  const std::complex<double> step = std::polar(1.0, -w);
  std::complex<double> sum = 0;
  for (std::size_t i = x.size(); i-- > 0;) sum = sum * step + static_cast<double>(x[i]);
  const double magnitude = std::abs(sum) / static_cast<double>(kImpulse);
  if (!std::isfinite(magnitude)) return kCeilingDB;
  return magnitude > 0 ? std::max(20 * std::log10(magnitude), kFloorDB) : kFloorDB;
}

/// Most filters fade long before the end; what is left then is below what is told.
void cutTail(std::vector<float>& x) {
  constexpr float kQuiet = kImpulse * 1e-12f;
  while (!x.empty() && std::fabs(x.back()) < kQuiet) x.pop_back();
}

}  // namespace

ChainResponse measureResponse(DSPEffects& effects, double sampleRate, std::size_t count) {
  ChainResponse response{.sampleRate = sampleRate, .points = {}, .leftOut = {}};
  std::vector<DSPChainEntry> kept;
  for (const DSPChainEntry& entry : effects.entries()) {
    if (hasResponse(entry.effectType)) {
      kept.push_back(entry);
    } else if (entry.enabled) {
      response.leftOut.push_back(entry.effectType);
    }
  }
  effects.applyChain(kept);
  effects.vinylSimulator.setNoiseLevel(0);
  effects.vinylSimulator.setCrackleRate(0);
  effects.formatChanged(sampleRate, 2);

  const auto length = static_cast<std::size_t>(kSeconds * sampleRate);
  std::vector<float> left;
  std::vector<float> right;
  PlanarBuffers block(2, kBlock, sizeof(float));
  block.setFrames(kBlock);
  while (left.size() < length) {
    for (std::uint32_t c = 0; c < 2; ++c) std::fill_n(block.list().channel<float>(c), kBlock, 0.0f);
    if (left.empty()) {
      for (std::uint32_t c = 0; c < 2; ++c) block.list().channel<float>(c)[0] = kImpulse;
    }
    effects.chain.process(block.list(), kBlock, sampleRate);
    const auto* l = block.list().channel<float>(0);
    const auto* r = block.list().channel<float>(1);
    left.insert(left.end(), l, l + kBlock);
    right.insert(right.end(), r, r + kBlock);
  }
  cutTail(left);
  cutTail(right);
  for (const double frequency : frequencies(sampleRate, count)) {
    response.points.push_back({frequency, magnitudeDB(left, sampleRate, frequency),
                               magnitudeDB(right, sampleRate, frequency)});
  }
  return response;
}

}  // namespace velorin
