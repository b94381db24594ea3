// Any bytes may stand where a chain is stored; what is taken for one comes back as it was.
#include <cstdlib>

#include "dsp/ChainFile.h"
#include "dsp/DSPEffects.h"
#include "dsp/presets/EQPresetManager.h"
#include "foundation/Text.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  using namespace velorin;
  static DSPEffects effects;
  static const EQPresetManager presets("/nonexistent");
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (const auto config = chainConfigFromJSON(text)) {
    if (chainConfigFromJSON(toJSON(*config)) != config) std::abort();
  }
  const auto file = chainFileFromJSON(text);
  if (!file && file.error().text.empty()) std::abort();
  if (file && !apply(file.value(), effects, presets)) {
    if (effects.entries() != file.value().config.entries) std::abort();
    for (const ChainFile::Setting& setting : file.value().settings) {
      for (const EffectParameter& each : effects.effect(setting.effect).parameters()) {
        // NaN and what lies outside must not have come so far.
        if (!(each.get() >= each.minimum - 1e-3 && each.get() <= each.maximum + 1e-3)) std::abort();
      }
    }
  }
  return 0;
}
