#include "shell/ControlSettings.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "engine/AudioEngine.h"
#include "foundation/MainThread.h"
#include "foundation/SerialQueue.h"
#include "foundation/Text.h"
#include "session/PlayerState.h"

namespace velorin {
namespace {

using Problem = std::optional<std::string>;

constexpr double kLongestCrossfade = 60;   // seconds
constexpr double kLargestLimit = 1 << 20;  // MiB

std::optional<double> numberIn(std::string_view text, double least, double most) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (!(value >= least && value <= most)) return std::nullopt;
  return value;
}

template <int kLeast, int kMost>
bool isNumber(std::string_view text) {
  return numberIn(text, kLeast, kMost).has_value();
}

bool isSwitch(std::string_view text) {
  return text == "on" || text == "off";
}

template <class Choice>
bool isChoice(std::string_view text) {
  return fromName<Choice>(text).has_value();
}

/// For a setter of the player that takes a switch.
template <void (PlayerState::*kSet)(bool)>
Problem setSwitch(PlayerState& player, std::string_view value) {
  (player.*kSet)(value == "on");
  return std::nullopt;
}

Problem setVolume(PlayerState& player, std::string_view value) {
  player.setVolume(numberIn(value, 0, 1).value_or(1));
  return std::nullopt;
}

Problem setVolumeMode(PlayerState& player, std::string_view value) {
  const VolumeMode mode = fromName<VolumeMode>(value).value_or(VolumeMode::software);
  if (mode == VolumeMode::hardware && !player.hardwareVolumeAvailable()) {
    return "the device has no volume of its own: choose software or fixed";
  }
  player.setVolumeMode(mode);
  return std::nullopt;
}

Problem setMemoryLimit(PlayerState& player, std::string_view value) {
  player.setMemoryPlaybackLimitMB(static_cast<int>(numberIn(value, 1, kLargestLimit).value_or(0)));
  return std::nullopt;
}

Problem setCrossfade(PlayerState& player, std::string_view value) {
  const double seconds = numberIn(value, 0, kLongestCrossfade).value_or(0);
  player.setCrossfadeEnabled(seconds > 0);
  if (seconds > 0) player.setCrossfadeDuration(seconds);
  return std::nullopt;
}

Problem setStrategy(PlayerState& player, std::string_view value) {
  player.setSampleRateStrategy(
      fromName<SampleRateStrategy>(value).value_or(SampleRateStrategy::native));
  return std::nullopt;
}

constexpr std::array kSettings{
    ControlSetting{"volume", "0..1", "Set the volume", isNumber<0, 1>, setVolume},
    ControlSetting{"volume-mode", "software|hardware|fixed", "Where the volume is applied",
                   isChoice<VolumeMode>, setVolumeMode},
    ControlSetting{"exclusive", "on|off", "Keep other programs off the device", isSwitch,
                   setSwitch<&PlayerState::setExclusiveMode>},
    ControlSetting{"integer", "on|off", "Give the device integers instead of floats", isSwitch,
                   setSwitch<&PlayerState::setIntegerMode>},
    ControlSetting{"memory", "on|off", "Play tracks from RAM", isSwitch,
                   setSwitch<&PlayerState::setMemoryPlayback>},
    ControlSetting{"memory-limit", "MIB", "Largest file to play from RAM",
                   isNumber<1, static_cast<int>(kLargestLimit)>, setMemoryLimit},
    ControlSetting{"gapless", "on|off", "Join tracks without a gap", isSwitch,
                   setSwitch<&PlayerState::setGaplessEnabled>},
    ControlSetting{"crossfade", "SECONDS", "Fade tracks into each other; 0 for not",
                   isNumber<0, static_cast<int>(kLongestCrossfade)>, setCrossfade},
    ControlSetting{"strategy", "native|powerOf2|max|fixed", "Which rate the device runs at",
                   isChoice<SampleRateStrategy>, setStrategy},
    ControlSetting{"force-high-rate", "on|off", "Take a high rate although the buffer is short",
                   isSwitch, setSwitch<&PlayerState::setForceHighSampleRate>},
};

// --- Devices ---

struct FoundDevices {
  std::vector<AudioDevice> devices;
  std::string problem;  ///< empty when all were found
};

FoundDevices findDevices(const AudioEngine& engine, std::span<const std::string> wanted) {
  const std::vector<AudioDevice> present = engine.enumerateOutputDevices();
  FoundDevices found;
  for (const std::string& each : wanted) {
    std::vector<AudioDevice> matches;
    std::ranges::copy_if(present, std::back_inserter(matches),
                         [&](const AudioDevice& device) { return device.uid == each; });
    if (matches.empty()) {
      std::ranges::copy_if(present, std::back_inserter(matches),
                           [&](const AudioDevice& device) { return device.name == each; });
    }
    if (matches.size() != 1) {
      found.problem = fmt::format(
          "there {} '{}': 'velorin devices' lists them with their UIDs",
          matches.empty() ? "is no device" : "is more than one device with the name", each);
      return found;
    }
    found.devices.push_back(std::move(matches.front()));
  }
  return found;
}

std::string nameOfCurrent(const AudioEngine& engine) {
  const auto device = engine.deviceCapabilities(engine.currentDevice());
  return device ? device->name : "no device";
}

InstanceAnswer choose(AudioEngine& engine, const std::vector<AudioDevice>& devices) {
  if (devices.empty()) {
    engine.followSystemDefault();
    return {true, "following the system's default, now " + nameOfCurrent(engine)};
  }
  if (devices.size() == 1) {
    engine.selectOutputDevice(devices.front().id);
    if (engine.currentDevice() == devices.front().id) {
      return {true, "playing on " + nameOfCurrent(engine)};
    }
    return {false, devices.front().name + " went away: 'velorin devices' lists what is there"};
  }
  std::vector<std::string> uids;
  for (const AudioDevice& device : devices) uids.push_back(device.uid);
  engine.enableMultiOutput(uids);
  if (engine.multiOutputDeviceUIDs().empty()) {
    return {false, "these devices cannot play at once: choose others, or one of them"};
  }
  return {true, fmt::format("playing on {} devices", uids.size())};
}

void chooseDevices(PlayerState& player, std::span<const std::string> wanted,
                   std::function<void(InstanceAnswer)> answer) {
  FoundDevices found;
  if (wanted.size() != 1 || wanted.front() != "default") {
    found = findDevices(player.engine(), wanted);
    if (!found.problem.empty()) return answer({false, text::toValidUTF8(found.problem)});
  }
  player.engineQueue().async([&engine = player.engine(), devices = std::move(found.devices),
                              answer = std::move(answer)]() mutable {
    InstanceAnswer done = choose(engine, devices);
    done.text = text::toValidUTF8(done.text);
    MainThread::instance().post(
        [answer = std::move(answer), done = std::move(done)] { answer(done); });
  });
}

const ControlSetting* settingNamed(std::string_view name) {
  const auto* const found = std::ranges::find(kSettings, name, &ControlSetting::name);
  return found == kSettings.end() ? nullptr : found;
}

}  // namespace

std::span<const ControlSetting> controlSettings() noexcept {
  return kSettings;
}

std::optional<std::string> problemWithSetting(const std::vector<std::string>& words) {
  if (words.empty()) return "no setting is named";
  if (words.front() == kDeviceSetting) {
    return words.size() > 1 ? std::nullopt
                            : std::optional<std::string>(
                                  "no device is named: give a name, a UID "
                                  "or 'default'");
  }
  const ControlSetting* const setting = settingNamed(words.front());
  if (setting == nullptr) return "the running player does not know this setting";
  if (words.size() == 2 && setting->accepts(words[1])) return std::nullopt;
  return fmt::format("{} takes {}", setting->name, setting->values);
}

void applyControlSetting(PlayerState& player, const std::vector<std::string>& words,
                         std::function<void(InstanceAnswer)> answer) {
  if (const auto problem = problemWithSetting(words)) return answer({false, *problem});
  if (words.front() == kDeviceSetting) {
    return chooseDevices(player, std::span(words).subspan(1), std::move(answer));
  }
  const auto problem = settingNamed(words.front())->apply(player, words[1]);
  answer({!problem, problem.value_or("")});
}

}  // namespace velorin
