// The listener's chain as it is stored.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dsp/DSPEffectType.h"

namespace velorin {

/// One position of the chain.
struct DSPChainEntry {
  std::string id;  ///< UUID of the position, upper-case text
  DSPEffectType effectType = DSPEffectType::preAmp;
  bool enabled = false;
  std::optional<std::string> headphoneProfileId;  ///< only of a headphone profile

  bool operator==(const DSPChainEntry&) const = default;
};

/// The positions in processing order; an effect stands in it at most once.
struct DSPChainConfig {
  std::vector<DSPChainEntry> entries;

  bool operator==(const DSPChainConfig&) const = default;
};

/// ReplayGain, equalizer and dither, all off, each with a new id.
DSPChainConfig defaultChainConfig();

/// Compact JSON, as the preference "dspChainConfig" holds it.
std::string toJSON(const DSPChainConfig& config);

/// Empty, as a whole, when a required key is missing or of another type, when an id is no UUID,
/// when an effect is unknown or stands in it twice. Other keys are passed over.
std::optional<DSPChainConfig> chainConfigFromJSON(std::string_view json);

}  // namespace velorin
