// Any text is a snapshot of the effects, the profile of a device, or neither. What was read can be
// written and read again, and applied: the effects then hold what they can have, and what they hold
// makes a snapshot that changes nothing.
#include <cstdlib>

#include "dsp/DSPEffects.h"
#include "dsp/settings/DSPSnapshot.h"
#include "dsp/settings/DeviceSettingsManager.h"
#include "dsp/settings/EffectSettings.h"
#include "foundation/Preferences.h"

namespace {

using namespace velorin;

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  static DSPEffects effects;
  static Preferences preferences;

  const auto snapshot = snapshotFromJSON(text);
  if (snapshot) {
    const auto again = snapshotFromJSON(toJSON(snapshot.value()));
    require(again && again.value() == snapshot.value());
    applySnapshot(snapshot.value(), effects, preferences);
  } else {
    require(!snapshot.error().text.empty());
  }

  const auto profile = deviceSettingsFromJSON(text);
  if (profile) {
    const auto again = deviceSettingsFromJSON(toJSON(profile.value()));
    require(again && again.value() == profile.value());
    DeviceSettingsManager profiles(preferences);
    profiles.save(profile.value(), "fuzz");
    require(profiles.load("fuzz") == profile.value());
    applyEffects(profile.value(), effects, preferences);
  } else {
    require(!profile.error().text.empty());
  }

  if (snapshot || profile) {
    const DSPSnapshot held = captureSnapshot(effects, preferences);
    for (const DSPSettingInfo& info : allDSPSettings()) {
      require(info.takes(*numberAt(held, info.inSnapshot)));
    }
    applySnapshot(held, effects, preferences);
    require(captureSnapshot(effects, preferences) == held);
    loadEffects(effects, preferences);
  }
  return 0;
}
