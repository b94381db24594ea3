// Writes the seeds of settings_fuzz into a folder: a full snapshot and a full profile.
#include <filesystem>
#include <fstream>

#include "dsp/DSPEffects.h"
#include "dsp/settings/DSPSnapshot.h"
#include "dsp/settings/DeviceSettingsManager.h"
#include "dsp/settings/EffectSettings.h"
#include "foundation/Preferences.h"

int main(int count, char** arguments) {
  using namespace velorin;
  if (count != 2) return 2;
  const std::filesystem::path folder = arguments[1];
  std::filesystem::create_directories(folder);
  Preferences preferences;
  const auto effects = std::make_unique<DSPEffects>();
  effects->applyChain(defaultChainConfig().entries);
  DeviceSettings profile;
  captureEffects(*effects, preferences, profile);
  std::ofstream(folder / "snapshot.json") << toJSON(captureSnapshot(*effects, preferences));
  std::ofstream(folder / "profile.json") << toJSON(profile);
  return 0;
}
