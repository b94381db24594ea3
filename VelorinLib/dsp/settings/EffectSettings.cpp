#include "dsp/settings/EffectSettings.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "dsp/DSPEffects.h"
#include "dsp/presets/BuiltInPresets.h"
#include "dsp/presets/EQPresetManager.h"
#include "foundation/Preferences.h"

namespace velorin {
namespace {

constexpr const char* kChain = "dspChainConfig";
constexpr const char* kPresetName = "equalizerPresetName";
constexpr const char* kHeadroom = "headroomManagementEnabled";

EffectParameter parameterOf(const DSPSettingInfo& info, DSPEffects& effects) {
  auto parameters = effects.effect(info.effect).parameters();
  return *std::ranges::find(parameters, info.parameter, &EffectParameter::name);
}

double valueOf(const DSPSettingInfo& info, const EffectParameter& parameter) {
  const double value = parameter.get();
  const bool isFloat = std::holds_alternative<float DSPSnapshot::*>(info.inSnapshot);
  return isFloat ? asWritten(static_cast<float>(value)) : value;
}

void storeSwitch(const DSPSwitchInfo& info, DSPEffects& effects, Preferences& preferences) {
  preferences.setBool(info.key, effects.effect(info.effect).isEnabled());
}

void storeSetting(const DSPSettingInfo& info, DSPEffects& effects, Preferences& preferences) {
  const double value = valueOf(info, parameterOf(info, effects));
  if (info.isWhole()) {
    preferences.setInt(info.key, static_cast<std::int64_t>(value));
  } else {
    preferences.setDouble(info.key, value);
  }
}

std::string_view textOf(const std::vector<std::uint8_t>& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

void usePreset(const std::string& name, DSPEffects& effects, const EQPresetManager* presets) {
  // Ours first: they need no folder.
  const std::vector<EQPreset>& builtIn = builtInPresets();
  const auto ours = std::ranges::find(builtIn, name, &EQPreset::name);
  if (ours != builtIn.end()) return setBands(ours->bands, effects);
  const auto own = (presets != nullptr ? *presets : EQPresetManager::shared()).preset(name);
  if (own) setBands(own->bands, effects);
}

}  // namespace

double valueOf(DSPSetting setting, DSPEffects& effects) {
  return valueOf(infoOf(setting), parameterOf(infoOf(setting), effects));
}

bool setValue(DSPSetting setting, double value, DSPEffects& effects) {
  const DSPSettingInfo& info = infoOf(setting);
  if (!info.takes(value)) return false;
  const EffectParameter parameter = parameterOf(info, effects);
  if (valueOf(info, parameter) != value) parameter.set(value);
  return true;
}

void setBands(const std::vector<EQBand>& bands, DSPEffects& effects) {
  if (effects.equalizer.bands() != bands) effects.equalizer.setBands(bands);
}

std::vector<std::uint8_t> chainData(const std::vector<DSPChainEntry>& entries) {
  const std::string json = toJSON(DSPChainConfig{entries});
  return {json.begin(), json.end()};
}

std::vector<std::uint8_t> bandsData(const std::vector<EQBand>& bands) {
  const std::string json = bandsToJSON(bands);
  return {json.begin(), json.end()};
}

void loadEffects(DSPEffects& effects, const Preferences& preferences,
                 const EQPresetManager* presets) {
  for (const DSPSwitchInfo& info : allDSPSwitches()) {
    if (const auto on = preferences.getBool(info.key)) effects.effect(info.effect).setEnabled(*on);
  }
  for (const DSPSettingInfo& info : allDSPSettings()) {
    const auto value = preferences.getDouble(info.key);
    if (value) setValue(info.setting, info.isWhole() ? std::trunc(*value) : *value, effects);
  }
  if (const auto name = preferences.getText(kPresetName)) {
    usePreset(*name, effects, presets);
  }
  effects.headroomDSP.setManaged(preferences.getBool(kHeadroom).value_or(true));
}

void storeEffect(DSPEffectType type, DSPEffects& effects, Preferences& preferences) {
  if (const DSPSwitchInfo* info = switchOf(type)) storeSwitch(*info, effects, preferences);
  for (const DSPSettingInfo& info : allDSPSettings()) {
    if (info.effect == type) storeSetting(info, effects, preferences);
  }
}

void storeEffects(DSPEffects& effects, Preferences& preferences) {
  for (const DSPEffectType type : allEffectTypes()) storeEffect(type, effects, preferences);
}

std::optional<DSPChainConfig> storedChain(const Preferences& preferences) {
  const auto bytes = preferences.getBytes(kChain);
  return bytes ? chainConfigFromJSON(textOf(*bytes)) : std::nullopt;
}

void storeChain(const std::vector<DSPChainEntry>& entries, Preferences& preferences) {
  preferences.setBytes(kChain, chainData(entries));
}

void captureEffects(DSPEffects& effects, const Preferences& preferences, DeviceSettings& into) {
  for (const DSPSwitchInfo& info : allDSPSwitches()) {
    if (info.inDevice != nullptr) into.*info.inDevice = effects.effect(info.effect).isEnabled();
  }
  for (const DSPSettingInfo& info : allDSPSettings()) {
    putNumber(into, info.inDevice, valueOf(info.setting, effects));
  }
  into.equalizerPresetName = preferences.getText(kPresetName).value_or("Flat");
  into.dspChainConfigData = chainData(effects.entries());
}

void applyEffects(const DeviceSettings& settings, DSPEffects& effects, Preferences& preferences,
                  const EQPresetManager* presets) {
  const auto chain = settings.dspChainConfigData
                         ? chainConfigFromJSON(textOf(*settings.dspChainConfigData))
                         : std::nullopt;
  std::vector<DSPChainEntry> entries = chain ? chain->entries : effects.entries();
  const auto entryOf = [&](DSPEffectType type) {
    return std::ranges::find(entries, type, &DSPChainEntry::effectType);
  };
  for (const DSPSettingInfo& info : allDSPSettings()) {
    const auto value = numberAt(settings, info.inDevice);
    if (value) setValue(info.setting, *value, effects);
  }
  usePreset(settings.equalizerPresetName, effects, presets);
  for (const DSPSwitchInfo& info : allDSPSwitches()) {
    DSPEffect& effect = effects.effect(info.effect);
    bool on = info.inDevice != nullptr ? settings.*info.inDevice : effect.isEnabled();
    if (const auto entry = entryOf(info.effect); entry != entries.end()) {
      if (chain) on = entry->enabled;
      entry->enabled = on;
    }
    effect.setEnabled(on);
  }
  effects.applyChain(entries);

  storeEffects(effects, preferences);
  preferences.setText(kPresetName, settings.equalizerPresetName);
  storeChain(entries, preferences);
}

}  // namespace velorin
