#include "engine/joins/RateBridge.h"

#include <fmt/format.h>

#include <cmath>

namespace velorin {
namespace {

constexpr double kSameClientRate = 1.0;  // Hz
constexpr double kSameFileRate = 0.01;   // Hz: a filter for the one does for the other

}  // namespace

RateBridge::Decision RateBridge::decide(const Situation& s, const std::string& name) {
  const auto line = [&](const char* what) {
    return fmt::format("🔗 {} bridge {}: {:.0f}Hz → {:.0f}Hz", name, what, s.newRate, s.clientRate);
  };
  const bool fitsClient = std::abs(s.newRate - s.clientRate) <= kSameClientRate;
  const bool fitsFilter = std::abs(s.newRate - s.fileRate) <= kSameFileRate;

  if (s.isNative && s.resampling != Resampling::byStrategy && !fitsClient) {
    return {.line = fmt::format("🔗 {} aborted: Native mode + rate change ({:.0f}Hz → {:.0f}Hz) — "
                                "falling back to restart for bit-perfect",
                                name, s.clientRate, s.newRate)};
  }
  switch (s.resampling) {
    case Resampling::none:
      if (!fitsClient) {
        return {.action = Action::replace, .isBridge = true, .line = line("created")};
      }
      if (std::abs(s.newRate - s.fileRate) > kSameClientRate) return {};
      return {.action = Action::goOn};
    case Resampling::bridge:
      if (std::abs(s.newRate - s.clientRate) < kSameClientRate) {
        return {.action = Action::replace,
                .line = fmt::format("🔗 {} bridge dropped: source matches DAC rate", name)};
      }
      if (fitsFilter) return {.action = Action::goOn, .isBridge = true};
      return {.action = Action::replace, .isBridge = true, .line = line("recreated")};
    case Resampling::byStrategy:
      if (std::abs(s.plannedRate - s.clientRate) >= kSameClientRate) return {};
      return {.action = fitsFilter ? Action::goOn : Action::replace};
  }
  return {};
}

}  // namespace velorin
