#include "platform/audio/pipewire/PipeWireVolume.h"

#include <algorithm>
#include <cmath>

namespace velorin {
namespace {

// A card's mixer rounds to its own steps; in units of a slider, the cube root of the factor.
constexpr float kRounding = 0.02f;

bool isNear(const PipeWireVolume::Gains& a, const PipeWireVolume::Gains& b) {
  return std::ranges::equal(
      a, b, [](float x, float y) { return std::abs(std::cbrt(x) - std::cbrt(y)) <= kRounding; });
}

}  // namespace

void PipeWireVolume::sent(Gains gains, Clock::time_point now) {
  if (now - _sentAt > kEchoTime) _sent.clear();
  _sentAt = now;
  _sent.push_back(gains);
  show(std::move(gains));
}

bool PipeWireVolume::told(const Gains& gains, Clock::time_point now) {
  if (now - _sentAt > kEchoTime) _sent.clear();
  _told = gains;
  if (isEcho(gains)) return false;
  _sent.clear();
  const bool isNew = gains != _shown;
  show(gains);
  return isNew;
}

bool PipeWireVolume::settle(Clock::time_point now) {
  if (now - _sentAt < kEchoTime || _sent.empty()) return false;
  _sent.clear();
  const bool isOther = !isNear(_told, _shown);
  show(_told);
  return isOther;
}

PipeWireVolume::Gains PipeWireVolume::scaledTo(float loudest) const {
  Gains scaled = _shown;
  if (_balance.size() == scaled.size()) scaled = _balance;
  const float before = scaled.empty() ? 0 : *std::ranges::max_element(scaled);
  for (float& gain : scaled) gain = before > 0 ? gain / before * loudest : loudest;
  return scaled;
}

bool PipeWireVolume::isEcho(const Gains& gains) const {
  return std::ranges::any_of(_sent, [&](const Gains& sent) { return isNear(sent, gains); });
}

void PipeWireVolume::show(Gains gains) {
  if (std::ranges::any_of(gains, [](float gain) { return gain > 0; })) _balance = gains;
  _shown = std::move(gains);
}

}  // namespace velorin
