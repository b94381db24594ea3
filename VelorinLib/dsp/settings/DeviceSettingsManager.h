// The profiles of the output devices in the preference store.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "dsp/settings/SettingsError.h"
#include "foundation/Result.h"
#include "records/DeviceSettings.h"

namespace velorin {

class Preferences;

/// Keys are "device:" + UID + ":" + the field's name; "_hasProfile" marks that there is one. Any
/// thread but the render thread.
class DeviceSettingsManager {
 public:
  /// The preferences outlive this.
  explicit DeviceSettingsManager(Preferences& preferences) : _preferences(preferences) {}

  /// Nothing is saved for an empty UID. Costs no disk access: the store writes in the background.
  void save(const DeviceSettings& settings, std::string_view uid);
  /// Nothing where there is no profile. A field without a usable value takes that of a
  /// default-constructed record; without a strategy, the older switch "resamplingEnabled" stands
  /// for SampleRateStrategy::powerOf2.
  std::optional<DeviceSettings> load(std::string_view uid) const;
  /// Once in the life of a preference store: what was set for all devices becomes the profile of
  /// the device in use. With an empty UID it is done without one.
  void migrateIfNeeded(const DeviceSettings& inUse, std::string_view uid);

 private:
  Preferences& _preferences;
};

/// One object, compact, with each field as a key of the same name; the chain is base64 text, or
/// null.
std::string toJSON(const DeviceSettings& settings);

/// Reads one back: every key is required and of its type, other keys are passed over. A number
/// that cannot be used becomes that of a default-constructed record.
Result<DeviceSettings, SettingsError> deviceSettingsFromJSON(std::string_view json);

}  // namespace velorin
