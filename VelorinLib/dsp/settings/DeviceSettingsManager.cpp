#include "dsp/settings/DeviceSettingsManager.h"

#include <fmt/format.h>

#include "dsp/settings/DSPSetting.h"
#include "dsp/settings/DeviceFields.h"
#include "foundation/Preferences.h"
#include "records/PlaybackTypes.h"

namespace velorin {
namespace {

constexpr const char* kMigrated = "deviceSettingsMigrated";

std::string keyOf(std::string_view uid, std::string_view field) {
  return fmt::format("device:{}:{}", uid, field);
}

void put(Preferences& store, const std::string& key, bool value) {
  store.setBool(key, value);
}
void put(Preferences& store, const std::string& key, int value) {
  store.setInt(key, value);
}
void put(Preferences& store, const std::string& key, float value) {
  store.setDouble(key, asWritten(value));
}
void put(Preferences& store, const std::string& key, double value) {
  store.setDouble(key, value);
}
void put(Preferences& store, const std::string& key, const std::string& value) {
  store.setText(key, value);
}
void put(Preferences& store, const std::string& key, const std::optional<PreferenceBytes>& value) {
  value ? store.setBytes(key, *value) : store.remove(key);
}

template <class Value>
void take(const Preferences& store, const std::string& key, const DeviceField<Value>& field,
          DeviceSettings& into) {
  Value& member = into.*field.member;
  if constexpr (std::is_same_v<Value, bool>) {
    member = store.getBool(key).value_or(member);
  } else if constexpr (std::is_same_v<Value, std::string>) {
    member = store.getText(key).value_or(member);
  } else if constexpr (std::is_arithmetic_v<Value>) {
    const auto number = store.getDouble(key);
    if (number && field.takes(*number))
      putNumber(into, NumberIn<DeviceSettings>(field.member), *number);
  } else {
    member = store.getBytes(key);
  }
}

}  // namespace

void DeviceSettingsManager::save(const DeviceSettings& settings, std::string_view uid) {
  if (uid.empty()) return;
  forEachDeviceField([&](const auto& field) {
    put(_preferences, keyOf(uid, field.name), settings.*field.member);
  });
  _preferences.setBool(keyOf(uid, "_hasProfile"), true);
}

std::optional<DeviceSettings> DeviceSettingsManager::load(std::string_view uid) const {
  if (uid.empty()) return std::nullopt;
  if (!_preferences.getBool(keyOf(uid, "_hasProfile")).value_or(false)) return std::nullopt;
  DeviceSettings settings;
  forEachDeviceField(
      [&](const auto& field) { take(_preferences, keyOf(uid, field.name), field, settings); });
  const bool wasResampled = _preferences.getBool(keyOf(uid, "resamplingEnabled")).value_or(false);
  if (wasResampled && !_preferences.contains(keyOf(uid, "sampleRateStrategy"))) {
    settings.sampleRateStrategy = static_cast<int>(SampleRateStrategy::powerOf2);
  }
  return settings;
}

void DeviceSettingsManager::migrateIfNeeded(const DeviceSettings& inUse, std::string_view uid) {
  if (_preferences.getBool(kMigrated).value_or(false)) return;
  _preferences.setBool(kMigrated, true);
  save(inUse, uid);
}

}  // namespace velorin
