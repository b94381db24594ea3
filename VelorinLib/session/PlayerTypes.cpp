#include "session/PlayerTypes.h"

#include <array>
#include <utility>

namespace velorin {
namespace {

constexpr std::array kRepeatModes{
    std::pair{RepeatMode::off, std::string_view("off")},
    std::pair{RepeatMode::all, std::string_view("all")},
    std::pair{RepeatMode::one, std::string_view("one")},
};

constexpr std::array kSleepTimerActions{
    std::pair{SleepTimerAction::pause, std::string_view("pause")},
    std::pair{SleepTimerAction::sleepMac, std::string_view("sleepMac")},
    std::pair{SleepTimerAction::shutdownMac, std::string_view("shutdown")},
};

}  // namespace

std::string_view nameOf(RepeatMode mode) noexcept {
  for (const auto& [value, name] : kRepeatModes) {
    if (value == mode) return name;
  }
  return {};
}

RepeatMode repeatModeFromRaw(std::int64_t raw) noexcept {
  for (const auto& [value, name] : kRepeatModes) {
    if (static_cast<std::int64_t>(value) == raw) return value;
  }
  return RepeatMode::off;
}

std::string_view nameOf(SleepTimerAction action) noexcept {
  for (const auto& [value, name] : kSleepTimerActions) {
    if (value == action) return name;
  }
  return {};
}

std::optional<SleepTimerAction> sleepTimerActionFromName(std::string_view name) noexcept {
  for (const auto& [value, known] : kSleepTimerActions) {
    if (known == name) return value;
  }
  return std::nullopt;
}

}  // namespace velorin
