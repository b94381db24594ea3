#include "session/SleepTimer.h"

#include <algorithm>
#include <utility>

#include "foundation/Preferences.h"

namespace velorin {
namespace {

constexpr const char* kAction = "sleepTimerAction";
constexpr const char* kFadeEnabled = "sleepTimerFadeEnabled";
constexpr std::chrono::milliseconds kTick{1000};

}  // namespace

SleepTimer::SleepTimer(Preferences& preferences, Services services)
    : _preferences(preferences), _services(std::move(services)) {
  const auto name = _preferences.getText(kAction);
  _action = sleepTimerActionFromName(name.value_or("")).value_or(SleepTimerAction::pause);
  _fadeEnabled = _preferences.getBool(kFadeEnabled).value_or(true);
}

void SleepTimer::setAction(SleepTimerAction action) {
  _action = action;
  _preferences.setText(kAction, std::string(nameOf(action)));
  tellChanged();
}

void SleepTimer::setFadeEnabled(bool on) {
  _fadeEnabled = on;
  _preferences.setBool(kFadeEnabled, on);
  tellChanged();
}

void SleepTimer::start(int seconds) {
  cancel();
  _secondsRemaining = std::max(seconds, 0);
  _end = now() + std::chrono::seconds(_secondsRemaining);
  _timer.start(kTick, [this] { tick(); });
  tellChanged();
}

void SleepTimer::startEndOfTrack() {
  cancel();
  _endOfTrack = true;
  _services.updateNextTrack();
  tellChanged();
}

void SleepTimer::cancel() {
  stopCounting();
  const bool waitedForTrack = std::exchange(_endOfTrack, false);
  restore(std::exchange(_before, {}));
  if (waitedForTrack) _services.updateNextTrack();
  tellChanged();
}

bool SleepTimer::trackEnded() {
  if (!std::exchange(_endOfTrack, false)) return false;
  runAction({});
  tellChanged();
  return true;
}

void SleepTimer::stopCounting() {
  _timer.stop();
  _end.reset();
  _secondsRemaining = 0;
}

void SleepTimer::tick() {
  if (!_end) return;
  const auto left = std::chrono::ceil<std::chrono::seconds>(*_end - now()).count();
  if (left < 1) {
    finish();
    return;
  }
  _secondsRemaining = static_cast<int>(left);
  if (_fadeEnabled && left <= kFadeDuration) {
    fade(static_cast<double>(left) / kFadeDuration);
  }
  tellChanged();
}

void SleepTimer::fade(double gain) {
  if (_services.isIntegerMode()) {
    if (!fadeDevice(static_cast<float>(gain), _before)) fadeSoftware(gain, _before);
  } else if (_services.volumeMode() == VolumeMode::software) {
    fadeSoftware(gain, _before);
  }
}

bool SleepTimer::fadeDevice(float gain, Before& before) {
  if (!_services.deviceVolume || !_services.setDeviceVolume) return false;
  const auto original = before.device ? before.device : _services.deviceVolume();
  if (!original || !_services.setDeviceVolume(std::max(*original * gain, 0.0F))) return false;
  before.device = original;
  return true;
}

void SleepTimer::fadeSoftware(double gain, Before& before) {
  if (!before.software) before.software = _services.volume();
  _services.setVolume(std::max(*before.software * gain, 0.0));
}

void SleepTimer::restore(const Before& before) {
  if (before.software) _services.setVolume(*before.software);
  if (before.device && _services.setDeviceVolume) _services.setDeviceVolume(*before.device);
}

void SleepTimer::finish() {
  stopCounting();
  Before before = std::exchange(_before, {});
  // Also without a fade the volume is noted: what is muted here must come back.
  if (_services.isIntegerMode()) {
    if (!fadeDevice(0, before)) fadeSoftware(0, before);
  } else if (_services.volumeMode() == VolumeMode::software) {
    fadeSoftware(0, before);
  }
  runAction(before);
  tellChanged();
}

void SleepTimer::runAction(Before before) {
  const auto& silence = _action == SleepTimerAction::shutdownMac ? _services.stop : _services.pause;
  silence([this, alive = std::weak_ptr(_alive), before, action = _action] {
    if (!alive.lock()) return;
    restore(before);
    if (action == SleepTimerAction::sleepMac && _services.suspendMachine) {
      _services.suspendMachine();
    }
    if (action == SleepTimerAction::shutdownMac && _services.powerOffMachine) {
      _services.powerOffMachine();
    }
  });
}

void SleepTimer::tellChanged() {
  if (_services.changed) _services.changed();
}

SleepTimer::Clock::time_point SleepTimer::now() const {
  return _services.now ? _services.now() : Clock::now();
}

}  // namespace velorin
