// The profiles of the output devices in the preference store.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "records/DeviceSettings.h"

namespace velorin {

class Preferences;

/// Keys are "device:" + UID + ":" + the field's name; "_hasProfile" marks that there is one. Any
/// thread but the render thread.
class DeviceSettingsManager {
 public:
  /// The preferences outlive this.
  explicit DeviceSettingsManager(Preferences& preferences) : _preferences(preferences) {}

  /// Nothing is saved for an empty UID.
  void save(const DeviceSettings& settings, std::string_view uid);
  /// Nothing where there is no profile. A field without a usable value takes its fallback.
  std::optional<DeviceSettings> load(std::string_view uid) const;
  /// Once in the life of a preference store: what was set for all devices becomes the profile of
  /// the device in use.
  void migrateIfNeeded(const DeviceSettings& inUse, std::string_view uid);

 private:
  Preferences& _preferences;
};

}  // namespace velorin
