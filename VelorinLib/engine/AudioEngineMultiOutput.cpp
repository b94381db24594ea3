// Several devices at once, and the device's own volume.
#include "engine/AudioEngineImpl.h"
#include "foundation/Log.h"
#include "foundation/Preferences.h"
#include "records/Events.h"

namespace velorin {
namespace {

constexpr std::string_view kEnabledKey = "multiOutputEnabled";
constexpr std::string_view kDeviceUIDsKey = "multiOutputDeviceUIDs";

}  // namespace

std::vector<std::string> AudioEngine::multiOutputDeviceUIDs() const {
  return _impl->aggregates.subDeviceUIDs();
}

void AudioEngine::enableMultiOutput(const std::vector<std::string>& uids) {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->enableMultiOutput(uids);
}

void AudioEngine::disableMultiOutput() {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  if (_impl->aggregates.exists()) _impl->disableMultiOutput(std::nullopt);
}

std::optional<float> AudioEngine::hardwareVolume(AudioDeviceID device) const {
  return velorin::hardwareVolume(_impl->hardware, device);
}

bool AudioEngine::setHardwareVolume(AudioDeviceID device, float volume) {
  return velorin::setHardwareVolume(_impl->hardware, device, volume);
}

void AudioEngine::setVolumeMode(VolumeMode mode) {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->setVolumeMode(mode);
}

void AudioEngine::Impl::setVolumeMode(VolumeMode mode) {
  controls->volumeMode.store(mode);
  // Who scales the sound elsewhere, or nowhere, gets all of it.
  if (mode != VolumeMode::software) controls->volume.store(1);
  volumeListener.start(mode == VolumeMode::hardware ? devices.current() : kNoDevice);
}

void AudioEngine::Impl::hardwareVolumeChanged(AudioDeviceID device) {
  if (controls->volumeMode.load() != VolumeMode::hardware) return;
  if (const auto volume = velorin::hardwareVolume(hardware, device)) {
    bus.postOnMain(HardwareVolumeDidChange{*volume});
  }
}

// --- Multi-output ---

void AudioEngine::Impl::restoreMultiOutput() {
  if (!preferences.getBool(kEnabledKey).value_or(false)) return;
  std::vector<std::string> present;
  for (const PreferenceValue& value :
       preferences.getList(kDeviceUIDsKey).value_or(PreferenceList{})) {
    const auto* uid = std::get_if<std::string>(&value.value);
    if (uid && hardware.deviceForUID(*uid) != kNoDevice) present.push_back(*uid);
  }
  if (present.size() < 2) {
    preferences.setBool(kEnabledKey, false);
    return;
  }
  // Making the device takes its time; whoever chooses another one first has it.
  deviceListenerQueue.async([this, present] {
    RecursiveMutexLock hold(lifecycleLock);
    const bool isWanted = preferences.getBool(kEnabledKey).value_or(false);
    if (!isClosing && isWanted && !aggregates.exists()) enableMultiOutput(present);
  });
}

void AudioEngine::Impl::enableMultiOutput(const std::vector<std::string>& uids) {
  if (uids.size() < 2) return;
  saveDeviceProfile();
  auto where = interruptOrTake();
  // A device that is held exclusively is not there for the others.
  devices.disableHogMode();
  const bool hadAggregate = aggregates.exists();
  const auto made = aggregates.create(uids);
  if (made) {
    useAggregate(*made, uids);
  } else {
    log::line("❌ Failed to create multi-output aggregate");
    // What it was to replace is gone.
    if (hadAggregate) forgetMultiOutput(defaultOrFirst());
    if (settings.exclusiveMode) devices.enableHogMode();
  }
  if (where) goOn(*where);
  if (!made && !hadAggregate) return;
  bus.postOnMain(MultiOutputDidChange{});
  bus.postOnMain(AudioDevicesDidChange{});
}

void AudioEngine::Impl::useAggregate(AudioDeviceID made, const std::vector<std::string>& uids) {
  settings.exclusiveMode = false;
  log::line("🔓 Exclusive mode disabled via settings");
  settings.integerMode = false;
  devices.setCurrent(made);
  setVolumeMode(VolumeMode::software);
  const std::uint32_t channels = std::max(2u, hardware.outputChannels(made));
  controls->multiOutputChannelCount.store(channels > 2 ? static_cast<int>(channels) : 0);
  noteDeviceInUse();
  bus.postOnMain(AudioDeviceSettingsWillSwitch{
      profiles.enterAsSet(playbackSettings(), hardware.deviceUID(made))});

  preferences.setBool(kEnabledKey, true);
  preferences.setList(kDeviceUIDsKey, [&] {
    PreferenceList list;
    for (const std::string& uid : uids) list.push_back({uid});
    return list;
  }());
  follower.followNothing();
}

StreamFormat AudioEngine::Impl::formatForDevice(const StreamFormat& clientFormat) {
  StreamFormat format = clientFormat;
  const bool isAggregate = aggregates.exists() && aggregates.device() == devices.current();
  const std::uint32_t channels = isAggregate ? hardware.outputChannels(devices.current()) : 0;
  const bool isExpanded = channels > 2;
  controls->multiOutputChannelCount.store(isExpanded ? static_cast<int>(channels) : 0);
  if (isExpanded) {
    format.channelsPerFrame = channels;
    log::line("🔊 Multi-output: expanding AU input to {} channels", channels);
  }
  return format;
}

AudioDeviceID AudioEngine::Impl::defaultOrFirst() const {
  const AudioDeviceID preferred = hardware.defaultOutputDevice();
  if (preferred != kNoDevice && hardware.hasOutputStreams(preferred) &&
      preferred != aggregates.device()) {
    return preferred;
  }
  const auto list = devices.enumerateOutputDevices();
  return list.empty() ? kNoDevice : list.front().id;
}

void AudioEngine::Impl::disableMultiOutput(std::optional<AudioDeviceID> next) {
  const std::vector<std::string> uids = aggregates.subDeviceUIDs();
  auto where = interruptOrTake();
  aggregates.destroy();
  AudioDeviceID device = next.value_or(kNoDevice);
  if (!next) {
    device = hardware.deviceForUID(uids.front());
    if (!hardware.hasOutputStreams(device)) device = defaultOrFirst();
  }
  forgetMultiOutput(device);
  // When the first of the devices is there again it is used again.
  if (device == kNoDevice) follower.choose(uids.front());
  bus.postOnMain(MultiOutputDidChange{});
  if (!where) return;
  if (device == kNoDevice) {
    waitForDevice(std::move(*where));
  } else {
    recover(*where);
  }
}

void AudioEngine::Impl::forgetMultiOutput(AudioDeviceID next) {
  controls->multiOutputChannelCount.store(0);
  preferences.setBool(kEnabledKey, false);
  preferences.remove(kDeviceUIDsKey);
  if (next != kNoDevice) {
    follower.choose(hardware.deviceUID(next));
    useDevice(next);
  } else {
    devices.setCurrent(kNoDevice);
  }
}

}  // namespace velorin
