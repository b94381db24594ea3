// A named set of equalizer bands, and how it is written down.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "dsp/presets/EQBand.h"
#include "foundation/Result.h"

namespace velorin {

struct EQPreset {
  std::string name;
  std::vector<EQBand> bands;
  bool isBuiltIn = false;

  bool operator==(const EQPreset&) const = default;
};

/// Why a text is no preset, in a few words.
struct PresetError {
  std::string text;
};

/// A preset file: pretty-printed JSON with sorted keys. A name that is not UTF-8 is made so.
std::string toJSON(const EQPreset& preset);

/// Reads one back. Every key is required and of its type; other keys are passed over. Values are
/// taken as they stand, an equalizer clamps them.
Result<EQPreset, PresetError> presetFromJSON(std::string_view json);

/// The bands alone, as the array of band objects of a preset file, for files that hold bands among
/// other things.
std::string bandsToJSON(std::span<const EQBand> bands);
Result<std::vector<EQBand>, PresetError> bandsFromJSON(std::string_view json);

}  // namespace velorin
