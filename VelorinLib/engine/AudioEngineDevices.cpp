// Exclusive access, device switches and what happens when a device goes.
#include "engine/AudioEngineImpl.h"
#include "engine/devices/PlaybackProfile.h"
#include "foundation/Log.h"
#include "records/Events.h"

namespace velorin {
namespace {

/// A machine that cannot keep up must not be kept busy with saying so.
constexpr std::chrono::seconds kUnderrunReportInterval{10};

}  // namespace

std::optional<Resumption> AudioEngine::Impl::interrupt() {
  // A joined track that is heard is what goes on, even if the main thread has not heard of it.
  if (const auto heard = heardSource(); heard && takeOver(*heard)) {
    bus.postOnMain(TrackDidChange{heard->track, heard->sourceBitDepth, heard->join});
  }
  const auto track = nowPlaying.currentTrack();
  const PlaybackState state = nowPlaying.state();
  if (!output.isOpen() || !track || state == PlaybackState::stopped) return std::nullopt;
  Resumption where{*track, currentPosition(), state == PlaybackState::paused};
  stop();
  return where;
}

bool AudioEngine::Impl::goOn(const Resumption& where) {
  std::optional<double> start;
  if (where.position > 0) start = where.position;
  play(where.track, start);
  if (where.paused) pause();
  return !outputFailed;
}

void AudioEngine::Impl::setExclusiveMode(bool on) {
  if (settings.exclusiveMode == on) return;
  log::line("{}", on ? "🔒 Exclusive mode enabled via settings"
                     : "🔓 Exclusive mode disabled via settings");
  // The road to the device differs with and without exclusive access, so the unit is made anew.
  const auto where = interrupt();
  settings.exclusiveMode = on;
  if (on) {
    if (devices.ensureValidOutputDevice()) devices.enableHogMode();
  } else {
    devices.disableHogMode();
  }
  if (where) goOn(*where);
}

std::optional<Resumption> AudioEngine::Impl::interruptOrTake() {
  auto where = interrupt();
  if (!where) return interrupted.take(playGeneration.load());
  interrupted.renewAttempts();
  return where;
}

void AudioEngine::Impl::switchToDevice(AudioDeviceID device) {
  if (device == kNoDevice || !hardware.hasOutputStreams(device)) {
    log::line("⚠️ Ignoring non-output/invalid device id: {}", device);
    return;
  }
  if (device == devices.current()) return;
  saveDeviceProfile();
  // The old device must not be heard with the settings of the new one.
  const auto where = interruptOrTake();
  devices.disableHogMode();
  useDevice(device);
  if (where) recover(*where);
}

void AudioEngine::Impl::useDevice(AudioDeviceID device) {
  devices.setCurrent(device);
  noteDeviceInUse();
  const std::string uid = hardware.deviceUID(device);
  // Back on the very device: what is set may be newer than its profile.
  const bool isAsSet = !uid.empty() && uid == profiles.uidInForce();
  const DeviceSettings profile = isAsSet ? playbackSettings() : profiles.enter(uid);
  settings.exclusiveMode = profile.exclusiveMode;
  log::line("{}", profile.exclusiveMode ? "🔒 Exclusive mode enabled via settings"
                                        : "🔓 Exclusive mode disabled via settings");
  applyPlaybackSettings(profile);
  // Before anything plays: what is held offers other rates than what is shared.
  if (settings.exclusiveMode) devices.enableHogMode();
  if (!isAsSet) bus.postOnMain(AudioDeviceSettingsWillSwitch{profile});
}

bool AudioEngine::Impl::ensureDeviceInUse() {
  if (!devices.ensureValidOutputDevice()) return false;
  if (devices.current() == inUse.id) return true;
  saveDeviceProfile();
  devices.disableHogMode();
  useDevice(devices.current());
  return true;
}

void AudioEngine::Impl::moveToFallback() {
  const auto where = interrupt();
  (void)ensureDeviceInUse();
  if (where) goOn(*where);
}

void AudioEngine::Impl::applyPlaybackSettings(const DeviceSettings& profile) {
  applyPlayback(profile, settings, joins->settings);
  joins->files.memory().setOn(profile.memoryPlayback);
  joins->files.memory().setLimitMB(profile.memoryPlaybackLimitMB);
  if (settings.lowLatencyMode) fillThread.elevate();
  setVolumeMode(fromRaw<VolumeMode>(profile.volumeMode).value_or(VolumeMode::software));
}

DeviceSettings AudioEngine::Impl::playbackSettings() const {
  DeviceSettings now;
  capturePlayback(settings, joins->settings, now);
  now.memoryPlayback = joins->files.memory().isOn();
  now.memoryPlaybackLimitMB = joins->files.memory().limitMB();
  now.volumeMode = static_cast<int>(controls->volumeMode.load());
  return now;
}

void AudioEngine::Impl::saveDeviceProfile() {
  if (!isClosing) profiles.save(playbackSettings());
}

void AudioEngine::saveDeviceProfile() {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->saveDeviceProfile();
}

void AudioEngine::Impl::noteDeviceInUse() {
  const AudioDeviceID device = devices.current();
  if (device != kNoDevice) inUse = {.id = device, .name = devices.deviceName(device)};
}

void AudioEngine::Impl::onOutputEvent(OutputEvent event, int generation) {
  deviceListenerQueue.async([this, event, generation] {
    switch (event) {
      case OutputEvent::deviceLost:
        handleDeviceLost(generation);
        break;
      case OutputEvent::formatChanged:
        handleFormatChanged(generation);
        break;
      case OutputEvent::xrun:
        reportUnderrun();
        break;
    }
  });
}

void AudioEngine::Impl::reportUnderrun() {
  ++underruns;
  const auto now = std::chrono::steady_clock::now();
  if (now < nextUnderrunReport) return;
  nextUnderrunReport = now + kUnderrunReportInterval;
  log::line("⚠️ Output underrun: the device was not served in time ({} since the last report)",
            std::exchange(underruns, 0));
}

void AudioEngine::Impl::handleFormatChanged(int generation) {
  RecursiveMutexLock hold(lifecycleLock);
  const auto playing = currentSession();
  if (playGeneration.load() != generation || !playing) return;
  output.verifyRate(playing->clientFormat.sampleRate);
}

void AudioEngine::Impl::refreshReport() {
  OutputReport report = output.report();
  MutexLock hold(reportLock);
  lastReport = std::move(report);
  lastRateVerified = output.deviceRateVerified();
}

PlaybackFacts AudioEngine::Impl::facts() {
  PlaybackFacts facts;
  // A transport operation may hold the lock for long; the last report will do then.
  if (lifecycleLock.try_lock()) {
    refreshReport();
    lifecycleLock.unlock();
  }
  {
    MutexLock hold(reportLock);
    facts.output = lastReport;
    facts.deviceRateVerified = lastRateVerified;
  }
  const auto playing = currentSession();
  if (!playing) return {};
  const SharedFacts heard = playing->clock.read(0).facts;
  if (!heard) return {};
  facts.fileFormat = heard->fileFormat;
  facts.clientFormat = playing->clientFormat;
  facts.sourceBitDepth = heard->sourceBitDepth;
  facts.decoder = heard->decoderInfo;
  if (heard->targetSampleRate > 0) {
    facts.resampledFrom = heard->fileFormat.sampleRate;
    facts.resampledTo = heard->targetSampleRate;
  }
  facts.isInMemory = heard->isInMemory;
  facts.dsdRate = heard->dsd ? hertz(heard->dsd->source) : 0;
  facts.isIntegerOutput = playing->isIntegerOutput;
  facts.effectsActive = !playing->isIntegerOutput &&
                        (effects->chain.isActive() || effects->headroomDSP.headroomDB() > 0);
  facts.softwareVolumeActive = !playing->isIntegerOutput &&
                               controls->volumeMode.load() == VolumeMode::software &&
                               std::abs(controls->volume.load() - 1.0f) > 0.0001f;
  facts.deviceName = devices.deviceName(devices.current());
  facts.transport = transportName(hardware.transportType(devices.current()));
  return facts;
}

}  // namespace velorin
