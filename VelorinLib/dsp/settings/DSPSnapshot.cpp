#include "dsp/settings/DSPSnapshot.h"

#include <algorithm>

#include "dsp/DSPEffects.h"
#include "dsp/presets/EQPreset.h"
#include "dsp/settings/DSPSetting.h"
#include "dsp/settings/EffectSettings.h"
#include "dsp/settings/RecordJSON.h"
#include "foundation/Base64.h"
#include "foundation/Preferences.h"

namespace velorin {
namespace {

constexpr const char* kChainConfig = "chainConfigData";
constexpr const char* kPresetName = "equalizerPresetName";
constexpr const char* kBands = "equalizerBandsData";

std::string_view textOf(const std::vector<std::uint8_t>& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

std::optional<DSPChainConfig> chainOf(const DSPSnapshot& snapshot) {
  return chainConfigFromJSON(textOf(snapshot.chainConfigData));
}

std::optional<std::vector<EQBand>> bandsOf(const DSPSnapshot& snapshot) {
  auto bands = bandsFromJSON(textOf(snapshot.equalizerBandsData));
  if (!bands) return std::nullopt;
  std::vector<EQBand> read = std::move(bands).value();
  if (read.size() > kEQGrid.size()) read.resize(kEQGrid.size());
  return read;
}

void followSwitches(std::vector<DSPChainEntry>& entries, const DSPSnapshot& snapshot) {
  for (DSPChainEntry& entry : entries) {
    if (const DSPSwitchInfo* info = switchOf(entry.effectType)) {
      entry.enabled = snapshot.*info->inSnapshot;
    }
  }
}

std::string toJSON(const DSPSnapshot& snapshot) {
  nlohmann::ordered_json object;
  object[kChainConfig] = base64::encode(snapshot.chainConfigData);
  for (const DSPSwitchInfo& info : allDSPSwitches()) {
    object[std::string(info.key)] = snapshot.*info.inSnapshot;
  }
  for (const DSPSettingInfo& info : allDSPSettings()) {
    const double value = recordJSON::finite(*numberAt(snapshot, info.inSnapshot));
    auto& member = object[std::string(info.name)];
    if (info.isWhole()) {
      member = static_cast<std::int64_t>(value);
    } else {
      member = value;
    }
  }
  object[kPresetName] = snapshot.equalizerPresetName;
  object[kBands] = base64::encode(snapshot.equalizerBandsData);
  return recordJSON::written(object);
}

Result<DSPSnapshot, SettingsError> snapshotFromJSON(std::string_view json) {
  auto read = recordJSON::ObjectReader::read(json);
  if (!read) return read.error();
  recordJSON::ObjectReader& object = read.value();
  DSPSnapshot snapshot;
  snapshot.chainConfigData = object.bytes(kChainConfig);
  for (const DSPSwitchInfo& info : allDSPSwitches()) {
    snapshot.*info.inSnapshot = object.boolean(info.key, false);
  }
  for (const DSPSettingInfo& info : allDSPSettings()) {
    putNumber(snapshot, info.inSnapshot,
              info.isWhole() ? object.whole(info.name, 0) : object.number(info.name, 0));
  }
  snapshot.equalizerPresetName = object.text(kPresetName, {});
  snapshot.equalizerBandsData = object.bytes(kBands);
  if (object.hasFailed()) return object.error();
  return snapshot;
}

DSPSnapshot captureSnapshot(DSPEffects& effects, const Preferences& preferences) {
  DSPSnapshot snapshot;
  for (const DSPSwitchInfo& info : allDSPSwitches()) {
    snapshot.*info.inSnapshot = effects.effect(info.effect).isEnabled();
  }
  for (const DSPSettingInfo& info : allDSPSettings()) {
    putNumber(snapshot, info.inSnapshot, valueOf(info.setting, effects));
  }
  snapshot.chainConfigData = chainData(effects.entries());
  snapshot.equalizerPresetName = preferences.getText(kPresetName).value_or("Flat");
  snapshot.equalizerBandsData = bandsData(effects.equalizer.bands());
  return snapshot;
}

void applySnapshot(const DSPSnapshot& snapshot, DSPEffects& effects, Preferences& preferences) {
  for (const DSPSettingInfo& info : allDSPSettings()) {
    setValue(info.setting, *numberAt(snapshot, info.inSnapshot), effects);
  }
  if (const auto bands = bandsOf(snapshot)) setBands(*bands, effects);
  const auto chain = chainOf(snapshot);
  std::vector<DSPChainEntry> entries = chain ? chain->entries : effects.entries();
  for (const DSPSwitchInfo& info : allDSPSwitches()) {
    effects.effect(info.effect).setEnabled(snapshot.*info.inSnapshot);
  }
  followSwitches(entries, snapshot);
  effects.applyChain(entries);

  storeEffects(effects, preferences);
  preferences.setText(kPresetName, snapshot.equalizerPresetName);
  storeChain(entries, preferences);
}

}  // namespace velorin
