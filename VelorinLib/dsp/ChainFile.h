// A chain in a file: the stored chain, with the settings of its effects.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dsp/DSPChainConfig.h"
#include "dsp/presets/EQPreset.h"
#include "foundation/Result.h"

namespace velorin {

class DSPEffects;
class EQPresetManager;

/// {"entries": [{"effectType": "crossfeed", "enabled": true}, …],
///  "parameters": {"crossfeed": {"cutoffFrequency": 650}, "dither": {"algorithm": "lipshitz"},
///                 "equalizer": {"preset": "Rock"}}}
///
/// "entries" is what the preference "dspChainConfig" holds; written by hand, an entry may leave out
/// its "id" (it gets one) and "enabled" (it is on). "parameters" is optional: a number within the
/// range of the EffectParameter of that name, or the name of a choice. The equalizer takes
/// "preset", the name of one, or "bands", up to 31 as a preset file has them (those that are
/// missing are flat); the headphone profile takes "profile", an id. Any other key is a fault, so
/// that a slip of the pen is not passed over.
struct ChainFile {
  struct Setting {
    DSPEffectType effect;
    std::string name;
    double value;
  };

  DSPChainConfig config;  ///< with the profile of "parameters" in its entry
  std::vector<Setting> settings;
  std::optional<std::string> equalizerPreset;
  std::optional<std::vector<EQBand>> equalizerBands;
};

/// Why a chain cannot be had: one line that says where the fault is.
struct ChainFileError {
  std::string text;
};

Result<ChainFile, ChainFileError> chainFileFromJSON(std::string_view json);
/// The error names the file.
Result<ChainFile, ChainFileError> readChainFile(const std::filesystem::path& file);

/// Makes the effects those of the file: settings first, then the chain. Effects that the file does
/// not set keep what they have. Nothing on success; on an error nothing is changed. Where
/// DSPEffects may be edited.
std::optional<ChainFileError> apply(const ChainFile& file, DSPEffects& effects,
                                    const EQPresetManager& presets);

}  // namespace velorin
