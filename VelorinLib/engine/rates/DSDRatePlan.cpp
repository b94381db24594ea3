#include "engine/rates/DSDRatePlan.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <cmath>
#include <optional>

namespace velorin {
namespace {

constexpr std::array kCandidates = {352800.0, 176400.0, 88200.0, 44100.0};
constexpr double kRateTolerance = 1.0;  // Hz
constexpr double kWholeTolerance = 0.01;

bool divides(double candidate, double rate) {
  const double parts = rate / candidate;
  return std::abs(parts - std::round(parts)) < kWholeTolerance;
}

/// The first candidate that can be played, with a buffer of that many frames.
std::optional<double> highest(const RateOffer& offer, double rate, bool checkBuffer) {
  for (double candidate : kCandidates) {
    if (!offer.has(candidate) || !divides(candidate, rate)) continue;
    if (checkBuffer && offer.bufferFrameSizeMax / candidate < kShortestDeviceBuffer) continue;
    return candidate;
  }
  return std::nullopt;
}

}  // namespace

DSDRatePlan selectDSDOutputRate(const RateOffer& offer, bool forceHighRate, DSDRate source) {
  const double rate = rateAfter8To1(source);
  DSDRatePlan plan{.source = source};
  if (const auto chosen = highest(offer, rate, !forceHighRate)) {
    plan.chosen = *chosen;
    plan.isDowngraded = *highest(offer, rate, false) - *chosen > kRateTolerance;
  }
  plan.decimation = static_cast<int>(std::lround(rate / plan.chosen));
  plan.isOffered = offer.has(plan.chosen);
  return plan;
}

RatePlan planRates(const DSDRatePlan& dsd, const RateOffer& offer) {
  RatePlan plan;
  const bool weConvert = !offer.deviceConverts && !offer.rates.empty();
  if (dsd.isOffered) {
    plan.deviceRate = dsd.chosen;
  } else {
    plan.linesBefore.push_back(fmt::format(
        "⚠️ No native 44.1k rate on device (supported: {:.0f}). DSD→PCM at {:.0f}Hz, {} "
        "to device rate.",
        fmt::join(offer.rates, ", "), dsd.chosen, weConvert ? "resampled" : "CoreAudio SRC"));
  }
  if (weConvert) resampleForDevice(plan, offer, dsd.chosen);
  return plan;
}

std::string conversionText(const DSDRatePlan& dsd) {
  return fmt::format("{} → PCM {:.0f}Hz", nameOf(dsd.source), dsd.chosen);
}

}  // namespace velorin
