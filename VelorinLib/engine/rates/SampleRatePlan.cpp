#include "engine/rates/SampleRatePlan.h"

#include <fmt/format.h>

#include <optional>

namespace velorin {
namespace {

constexpr double kOfferTolerance = 1.0;   // Hz: devices report 44099.9 and the like
constexpr double kEqualTolerance = 0.01;  // Hz: rates that need no resampler
constexpr double kLowestCandidate = 8000;

bool contains(const std::vector<double>& rates, double rate) {
  return std::ranges::any_of(
      rates, [rate](double offered) { return std::abs(offered - rate) <= kOfferTolerance; });
}

bool differs(double a, double b) {
  return std::abs(a - b) > kEqualTolerance;
}

double powerOfTwoRate(int multiplier, const std::vector<double>& offered, double sourceRate) {
  for (int m = multiplier; m >= 2; m /= 2) {
    if (contains(offered, sourceRate * m)) return sourceRate * m;
  }
  if (contains(offered, sourceRate)) return sourceRate;
  for (double candidate : rateCandidates(sourceRate)) {
    if (contains(offered, candidate)) return candidate;
  }
  return sourceRate;
}

double fixedRate(double wanted, const std::vector<double>& offered, double sourceRate) {
  if (!(wanted > 0)) return sourceRate;  // never chosen
  if (contains(offered, wanted)) return wanted;
  const auto nearest = std::ranges::min_element(
      offered, {}, [wanted](double rate) { return std::abs(rate - wanted); });
  return nearest == offered.end() ? sourceRate : *nearest;
}

/// The first candidate that the device offers and whose buffer is long enough.
std::optional<double> deviceRateFor(const RateOffer& offer, double desired, bool checkBuffer) {
  for (double candidate : rateCandidates(desired)) {
    if (!offer.has(candidate)) continue;
    if (checkBuffer && offer.bufferFrameSizeMax / candidate < kShortestDeviceBuffer) continue;
    return candidate;
  }
  return std::nullopt;
}

std::string resamplingLine(double from, double to) {
  return fmt::format("🔄 {}: {:.0f}Hz → {:.0f}Hz (×{:.1f})",
                     to > from ? "Upsampling" : "Downsampling", from, to, to / from);
}

/// The lowest offered rate that keeps the whole band of the source, else the highest.
double rateToResampleTo(const std::vector<double>& offered, double sourceRate) {
  double best = 0;
  for (double rate : offered) {
    const bool keepsBand = rate >= sourceRate;
    const bool bestKeepsBand = best >= sourceRate;
    if (keepsBand != bestKeepsBand ? keepsBand : (keepsBand ? rate < best : rate > best)) {
      best = rate;
    }
  }
  return best;
}

}  // namespace

void resampleForDevice(RatePlan& plan, const RateOffer& offer, double sourceRate) {
  if (plan.deviceRate == 0) plan.deviceRate = rateToResampleTo(offer.rates, sourceRate);
  if (!differs(plan.deviceRate, plan.clientRate(sourceRate))) return;
  plan.targetRate = differs(plan.deviceRate, sourceRate) ? plan.deviceRate : 0;
  if (plan.targetRate > 0) plan.linesAfter.push_back(resamplingLine(sourceRate, plan.targetRate));
}

bool RateOffer::has(double rate) const {
  return contains(rates, rate);
}

std::vector<double> rateCandidates(double rate) {
  std::vector<double> candidates;
  for (double r = rate; r >= kLowestCandidate; r /= 2) candidates.push_back(r);
  return candidates;
}

double strategyRate(const RateSettings& settings, const std::vector<double>& offered,
                    double sourceRate) {
  switch (settings.strategy) {
    case SampleRateStrategy::native:
      return sourceRate;
    case SampleRateStrategy::powerOf2:
      return powerOfTwoRate(settings.multiplier, offered, sourceRate);
    case SampleRateStrategy::max:
      return offered.empty() ? sourceRate : *std::ranges::max_element(offered);
    case SampleRateStrategy::fixed:
      return fixedRate(settings.fixedRate, offered, sourceRate);
  }
  return sourceRate;
}

RatePlan planRates(const RateSettings& settings, const RateOffer& offer, double sourceRate) {
  RatePlan plan;
  const double target = strategyRate(settings, offer.rates, sourceRate);
  if (differs(target, sourceRate)) {
    plan.targetRate = target;
    plan.linesBefore.push_back(resamplingLine(sourceRate, target));
  }

  const double desired = plan.clientRate(sourceRate);
  const bool checkBuffer =
      !settings.forceHighRate && (settings.strategy == SampleRateStrategy::native ||
                                  settings.strategy == SampleRateStrategy::powerOf2);
  const std::optional<double> granted = deviceRateFor(offer, desired, checkBuffer);
  const bool weConvert = !offer.deviceConverts && !offer.rates.empty();
  if (!granted) {
    if (weConvert) {
      resampleForDevice(plan, offer, sourceRate);
    } else {
      plan.linesBefore.emplace_back(
          "ℹ️ Will play with HAL sample rate conversion (not bit-perfect)");
    }
    return plan;
  }

  plan.deviceRate = *granted;
  if (plan.deviceRate < desired && differs(plan.deviceRate, desired)) {
    plan.linesBefore.push_back(
        fmt::format("⚠️ Buffer {} frames too small for {:.0f}Hz → using {:.0f}Hz",
                    offer.bufferFrameSizeMax, desired, plan.deviceRate));
  }
  if (plan.targetRate > 0 && differs(plan.deviceRate, plan.targetRate)) {
    if (!differs(plan.deviceRate, sourceRate)) {
      plan.targetRate = 0;
      plan.linesAfter.emplace_back("🔄 Resampling disabled: DAC rate matches source rate");
    } else {
      plan.targetRate = plan.deviceRate;
      plan.linesAfter.push_back(fmt::format("🔄 Resampling adjusted: {:.0f}Hz → {:.0f}Hz (×{:.1f})",
                                            sourceRate, plan.deviceRate,
                                            plan.deviceRate / sourceRate));
    }
  }
  if (weConvert) resampleForDevice(plan, offer, sourceRate);
  return plan;
}

}  // namespace velorin
