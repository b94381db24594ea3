// Tells a decoder of one-bit audio which PCM it is to make.
#pragma once

#include <optional>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/rates/DSDRatePlan.h"

namespace velorin {

/// `prepareDSDtoPCM` with what selectDSDOutputRate() chooses for that device. Empty, with nothing
/// done, for a decoder of any other kind. Engine queue or fill thread, before the first read.
/// Throws std::bad_alloc.
inline std::optional<DSDRatePlan> prepareDSD(FileDecoder& decoder, const RateSettings& settings,
                                             const RateOffer& offer) {
  DSDSource* const dsd = decoder.dsd();
  if (dsd == nullptr) return std::nullopt;
  const DSDRatePlan plan = selectDSDOutputRate(offer, settings.forceHighRate, dsd->dsdRate());
  dsd->prepareDSDtoPCM(plan.decimation);
  return plan;
}

}  // namespace velorin
