// Devices that come and go while music plays, and the system's default that moves.
#include "engine/AudioEngineImpl.h"
#include "foundation/Log.h"
#include "records/Events.h"

namespace velorin {
namespace {

/// A sound server that was restarted is back within a second or two, a device that slept as well:
/// five seconds in all.
constexpr std::chrono::milliseconds kRetryInterval{200};

}  // namespace

std::vector<AudioDevice> AudioEngine::enumerateOutputDevices() const {
  return _impl->devices.enumerateOutputDevices();
}

AudioDeviceID AudioEngine::currentDevice() const {
  return _impl->devices.current();
}

bool AudioEngine::holdsDeviceExclusively() const {
  return _impl->devices.isHogMode();
}

bool AudioEngine::followsSystemDefaultOutput() const noexcept {
  return _impl->follower.followsSystemDefault();
}

std::optional<DACCapabilities> AudioEngine::deviceCapabilities(AudioDeviceID device) const {
  return velorin::deviceCapabilities(_impl->hardware, device);
}

void AudioEngine::selectOutputDevice(AudioDeviceID device) {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->selectOutputDevice(device);
}

void AudioEngine::followSystemDefault() {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->followSystemDefault();
}

void AudioEngine::Impl::startDevices() {
  RecursiveMutexLock hold(lifecycleLock);
  devices.setCurrent(follower.deviceAtStart());
  devices.ensureValidOutputDevice();
  noteDeviceInUse();
  const auto profile = profiles.start(playbackSettings(), hardware.deviceUID(devices.current()));
  // Exclusive access is the player's to ask for, from the preferences.
  if (profile) applyPlaybackSettings(*profile);
  listenToDevices();
  aggregates.destroyStale();
  restoreMultiOutput();
}

void AudioEngine::Impl::selectOutputDevice(AudioDeviceID device) {
  if (hardware.hasOutputStreams(device) && device != aggregates.device()) {
    endMultiOutputFor(device);
    follower.choose(hardware.deviceUID(device));
  }
  switchToDevice(device);
}

void AudioEngine::Impl::endMultiOutputFor(AudioDeviceID next) {
  if (aggregates.exists()) {
    disableMultiOutput(next);
  } else {
    preferences.setBool("multiOutputEnabled", false);
  }
}

void AudioEngine::Impl::followSystemDefault() {
  const AudioDeviceID device = hardware.defaultOutputDevice();
  endMultiOutputFor(device);
  follower.followSystemDefault();
  if (device != kNoDevice && hardware.hasOutputStreams(device)) {
    switchToDevice(device);
  } else {
    (void)ensureDeviceInUse();
  }
  bus.postOnMain(AudioDevicesDidChange{});
}

void AudioEngine::Impl::listenToDevices() {
  const auto listen = [this](AudioProperty property, const char* name) {
    auto listener = hardware.addListener(property, kNoDevice, 0, deviceListenerQueue,
                                         [this] { noteDevicesChanged(); });
    if (!listener) log::line("⚠️ Failed to add {} listener: {}", name, -ENOTSUP);
    return listener;
  };
  devicesListener = listen(AudioProperty::devices, "devices");
  defaultOutputListener = listen(AudioProperty::defaultOutput, "default output");
}

// Plugging one device in changes the list, the default and the list again: by the time that the
// first of these is handled the others have happened too.
void AudioEngine::Impl::noteDevicesChanged() {
  if (deviceChangeIsNoted.exchange(true)) return;
  deviceListenerQueue.async([this] { devicesChanged(); });
}

void AudioEngine::Impl::devicesChanged() {
  deviceChangeIsNoted = false;
  bus.postOnMain(AudioDevicesDidChange{});
  RecursiveMutexLock hold(lifecycleLock);
  if (!isClosing) applyDeviceRules();
}

void AudioEngine::Impl::applyDeviceRules() {
  if (aggregates.exists()) {
    if (aggregates.isAlive()) return;
    log::line("⚠️ Aggregate device lost, disabling multi-output");
    return disableMultiOutput(std::nullopt);
  }
  const bool lostHog = devices.noticeLostHogMode();
  const AudioDeviceID from = devices.current();
  const DeviceDecision decision = follower.decide(settings.exclusiveMode);
  switch (decision.move) {
    case DeviceMove::stay:
      if (lostHog && settings.exclusiveMode) devices.enableHogMode();
      break;
    case DeviceMove::followDefault:
      switchToDevice(decision.to);
      bus.postOnMain(AudioDevicesDidChange{});
      break;
    case DeviceMove::switchBack:
      log::line("🔄 Pending device re-appeared, switching back: {}",
                hardware.deviceName(decision.to));
      follower.noteReturned();
      switchToDevice(decision.to);
      postAutoSwitch(from, std::nullopt);
      break;
    case DeviceMove::useSaved:
      log::line("💾 Saved device found ({}), switching to it: {}", follower.chosenUID(),
                decision.to);
      switchToDevice(decision.to);
      postAutoSwitch(from, std::nullopt);
      break;
    case DeviceMove::replaceLost:
    case DeviceMove::noneLeft:
      leaveLostDevice(decision);
      break;
  }
}

void AudioEngine::Impl::leaveLostDevice(const DeviceDecision& decision) {
  const DeviceInUse lost = inUse;
  follower.noteLost(lost.id);
  if (decision.move == DeviceMove::replaceLost) {
    switchToDevice(decision.to);
    postAutoSwitch(lost.id, lost.name);
    return;
  }
  auto where = interrupt();
  devices.disableHogMode();
  devices.setCurrent(kNoDevice);
  if (!where) return;
  interrupted.renewAttempts();
  waitForDevice(std::move(*where));
}

void AudioEngine::Impl::postAutoSwitch(AudioDeviceID from, std::optional<std::string> fromName) {
  const AudioDeviceID to = devices.current();
  if (to == from) return;
  bus.postOnMain(AudioDeviceDidAutoSwitch{.fromID = from,
                                          .fromName = std::move(fromName),
                                          .toID = to,
                                          .toName = hardware.deviceName(to)});
}

void AudioEngine::Impl::handleDeviceLost(int generation) {
  RecursiveMutexLock hold(lifecycleLock);
  if (isClosing || playGeneration.load() != generation) return;
  log::line("⚠️ Output device lost: {}", inUse.name);
  applyDeviceRules();
  if (playGeneration.load() != generation) return;

  // It is in the list: it was away for a moment, was taken from us, or the system is about to
  // notice.
  const auto where = interrupt();
  devices.disableHogMode();
  if (!where) return;
  if (interrupted.isStuck(*where, generation)) {
    waitForDevice(*where);
  } else {
    interrupted.renewAttempts();
    recover(*where);
  }
}

void AudioEngine::Impl::recover(const Resumption& where) {
  if (goOn(where)) {
    interrupted.noteBegun(where, playGeneration.load());
  } else {
    waitForDevice(where);
  }
}

void AudioEngine::Impl::waitForDevice(Resumption where) {
  scheduleRetry(interrupted.wait(std::move(where), playGeneration.load()));
}

void AudioEngine::Impl::scheduleRetry(int ticket) {
  deviceListenerQueue.asyncAfter(kRetryInterval, [this, ticket] { retryInterrupted(ticket); });
}

void AudioEngine::Impl::retryInterrupted(int ticket) {
  RecursiveMutexLock hold(lifecycleLock);
  if (isClosing || !interrupted.isWaiting(ticket, playGeneration.load())) return;
  if (!interrupted.useAttempt()) {
    (void)interrupted.take(playGeneration.load());
    log::line("❌ No valid output device available");
    return;
  }
  applyDeviceRules();
  if (!interrupted.isWaiting(ticket, playGeneration.load())) return;
  if (!hardware.hasOutputStreams(devices.current())) return scheduleRetry(ticket);
  if (const auto where = interrupted.take(playGeneration.load())) recover(*where);
}

}  // namespace velorin
