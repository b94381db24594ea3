#include "engine/dsd/DSDSource.h"

namespace velorin {

std::optional<DSDRate> dsdRateOf(std::uint64_t hertz) noexcept {
  for (const DSDRate rate : {DSDRate::dsd64, DSDRate::dsd128, DSDRate::dsd256, DSDRate::dsd512}) {
    if (hertz == static_cast<std::uint32_t>(rate)) return rate;
  }
  return std::nullopt;
}

std::string_view nameOf(DSDRate rate) noexcept {
  switch (rate) {
    case DSDRate::dsd64:
      return "DSD64";
    case DSDRate::dsd128:
      return "DSD128";
    case DSDRate::dsd256:
      return "DSD256";
    case DSDRate::dsd512:
      return "DSD512";
  }
  return "DSD";
}

}  // namespace velorin
