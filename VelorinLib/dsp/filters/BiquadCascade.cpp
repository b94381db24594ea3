#include "dsp/filters/BiquadCascade.h"

#include <cmath>
#include <vector>

namespace velorin {
namespace {

struct SectionState {
  double s1 = 0;
  double s2 = 0;
};

// Far below anything that a float leaving the cascade can show, far above double's denormals.
constexpr double kTiny = 1e-150;

}  // namespace

struct BiquadCascade::Impl {
  std::vector<BiquadCoefficients> sections;
  std::vector<std::vector<SectionState>> states;  // by channel, then by section
};

BiquadCascade::BiquadCascade(std::span<const BiquadCoefficients> sections, std::size_t channels)
    : _impl(std::make_unique<Impl>()) {
  _impl->sections.assign(sections.begin(), sections.end());
  _impl->states.assign(channels, std::vector<SectionState>(sections.size()));
}

BiquadCascade::~BiquadCascade() = default;

void BiquadCascade::process(float* const* data, std::size_t frames) noexcept {
  for (std::size_t channel = 0; channel < channels(); ++channel) {
    processChannel(channel, data[channel], data[channel], frames);
  }
}

void BiquadCascade::processChannel(std::size_t channel, const float* in, float* out,
                                   std::size_t frames) noexcept {
  std::vector<SectionState>& states = _impl->states[channel];
  for (std::size_t i = 0; i < frames; ++i) {
    double value = in[i];
    for (std::size_t k = 0; k < states.size(); ++k) {
      const BiquadCoefficients& c = _impl->sections[k];
      SectionState& s = states[k];
      const double y = c.b0 * value + s.s1;
      s.s1 = (c.b1 * value + s.s2) - c.a1 * y;
      s.s2 = c.b2 * value - c.a2 * y;
      value = y;
    }
    out[i] = static_cast<float>(value);
  }
  bool isFinite = true;
  for (SectionState& s : states) {
    isFinite = isFinite && std::isfinite(s.s1) && std::isfinite(s.s2);
    if (std::fabs(s.s1) < kTiny) s.s1 = 0;
    if (std::fabs(s.s2) < kTiny) s.s2 = 0;
  }
  if (!isFinite) states.assign(states.size(), {});
}

void BiquadCascade::reset() noexcept {
  for (auto& states : _impl->states) states.assign(states.size(), {});
}

std::size_t BiquadCascade::sections() const noexcept {
  return _impl->sections.size();
}

std::size_t BiquadCascade::channels() const noexcept {
  return _impl->states.size();
}

}  // namespace velorin
