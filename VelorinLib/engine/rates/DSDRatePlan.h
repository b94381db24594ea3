// At which PCM rate a file of one-bit audio is played.
//
// Pure decisions. The listener's strategy for sample rates has no say here: any of the candidates
// is a rational part of the one-bit rate, and the highest that the device takes with a buffer of
// its own kind is the best that there is.
#pragma once

#include "engine/dsd/DSDSource.h"
#include "engine/rates/SampleRatePlan.h"

namespace velorin {

struct DSDRatePlan {
  DSDRate source = DSDRate::dsd64;
  double chosen = 44100;      ///< Hz of the PCM
  int decimation = 8;         ///< what follows the 8:1 filter; 1 for nothing
  bool isOffered = false;     ///< the device runs at `chosen`
  bool isDowngraded = false;  ///< the device offers more, but its buffer would be too short there

  bool operator==(const DSDRatePlan&) const = default;
};

/// The highest of 352.8, 176.4, 88.2 and 44.1 kHz that the device offers and, unless
/// `forceHighRate`, whose buffer lasts as long as kShortestDeviceBuffer wants. 44.1 kHz where none
/// is left, offered or not.
DSDRatePlan selectDSDOutputRate(const RateOffer& offer, bool forceHighRate, DSDRate source);

/// What becomes of the device: set to the chosen rate where it offers that. Else it is left alone
/// and the platform converts, or, where nothing behind us does, our resampler.
RatePlan planRates(const DSDRatePlan& dsd, const RateOffer& offer);

/// "DSD64 → PCM 88200Hz".
std::string conversionText(const DSDRatePlan& dsd);

}  // namespace velorin
