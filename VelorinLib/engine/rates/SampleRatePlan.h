// Which rate the device runs at for a file, and whether we resample.
//
// Pure decisions: no device is touched here. All comparisons with a device's rates have a
// tolerance of 1 Hz.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "records/PlaybackTypes.h"

namespace velorin {

/// What the listener chose.
struct RateSettings {
  SampleRateStrategy strategy = SampleRateStrategy::native;
  int multiplier = 2;          ///< of powerOf2, at least 2
  double fixedRate = 0;        ///< Hz, of fixed
  bool forceHighRate = false;  ///< skip the check of the buffer's length
};

/// What the device offers.
struct RateOffer {
  std::vector<double> rates;                ///< Hz, in the device's order
  std::uint32_t bufferFrameSizeMax = 4096;  ///< frames
  /// A stream of another rate is converted on the way; without that we resample ourselves.
  bool deviceConverts = true;

  bool has(double rate) const;
};

/// The rate that the strategy wants for a source rate, both in Hz.
double strategyRate(const RateSettings& settings, const std::vector<double>& offered,
                    double sourceRate);

/// [rate, rate / 2, rate / 4, …] while the value is at least 8000.
std::vector<double> rateCandidates(double rate);

struct RatePlan {
  /// Hz to set the device to; 0: leave it alone, the platform converts.
  double deviceRate = 0;
  /// Hz after our resampler; 0: none.
  double targetRate = 0;
  /// Lines for the log that belong before the device is set, and after.
  std::vector<std::string> linesBefore;
  std::vector<std::string> linesAfter;

  /// Hz of what the ring holds.
  double clientRate(double sourceRate) const { return targetRate > 0 ? targetRate : sourceRate; }
};

/// The device's buffer must hold at least this long, in seconds, or a lower rate is taken.
inline constexpr double kShortestDeviceBuffer = 0.04;

RatePlan planRates(const RateSettings& settings, const RateOffer& offer, double sourceRate);

/// For a plan where nothing behind us converts, and a device that offers something: where the
/// device does not run at the stream's rate, we resample. A device without a rate in the plan gets
/// the lowest that keeps the source's band.
void resampleForDevice(RatePlan& plan, const RateOffer& offer, double sourceRate);

}  // namespace velorin
