// The settings of the running player that another start of the program can change.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "shell/InstanceMessage.h"

namespace velorin {

class PlayerState;

/// One that takes a single value.
struct ControlSetting {
  std::string_view name;         ///< as typed: "exclusive"
  std::string_view values;       ///< what it takes, for people: "on|off"
  std::string_view description;  ///< a line of help
  bool (*accepts)(std::string_view value);
  /// Main thread. Nothing on success, else why not and what to do.
  std::optional<std::string> (*apply)(PlayerState& player, std::string_view value);
};

/// In the order of the help.
std::span<const ControlSetting> controlSettings() noexcept;

/// The setting that chooses devices: "default", or one name or UID, or several to play at once.
inline constexpr std::string_view kDeviceSetting = "device";

/// What is wrong with the words, the first of which names the setting, and what to do; nothing when
/// they can be applied. Pure.
std::optional<std::string> problemWithSetting(const std::vector<std::string>& words);

/// Does what the words say; answers once, now or when the engine is done. Main thread; the player
/// outlives the answer or its engine queue is emptied before it goes.
void applyControlSetting(PlayerState& player, const std::vector<std::string>& words,
                         std::function<void(InstanceAnswer)> answer);

}  // namespace velorin
