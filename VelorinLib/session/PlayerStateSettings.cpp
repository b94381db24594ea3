// The settings of the sound: who is told of them, and the devices whose own they become.
#include "engine/AudioEngine.h"
#include "session/PlayerStateImpl.h"

namespace velorin {
namespace {

/// A slider is dragged with sixty changes a second.
constexpr std::chrono::milliseconds kProfileDelay{300};

}  // namespace

SoundSettings::Services PlayerState::Impl::soundServices() {
  return {.onEngine = [this](auto work, auto done) { link.call(std::move(work), std::move(done)); },
          .currentTrack = [this]() -> std::optional<Track> {
            return currentTrack ? std::optional(currentTrack->track) : std::nullopt;
          },
          .changed = [this] { note(PlayerChange::effects); },
          .profileChanged = [this] { profileChanged(); }};
}

// --- The profile of the device ---

void PlayerState::Impl::profileChanged() {
  if (std::exchange(isProfileChanged, true)) return;
  MainThread::instance().postAfter(kProfileDelay, life.guard([this] { saveProfile(); }));
}

void PlayerState::Impl::saveProfile() {
  if (!std::exchange(isProfileChanged, false)) return;
  link.call([](AudioEngine& engine) { engine.saveDeviceProfile(); });
}

void PlayerState::Impl::takeOver(const DeviceSettings& incoming) {
  settings.takeOver(incoming);
  sound.takeOver(incoming);
  note(PlayerChange::settings | PlayerChange::volume);
  updateNextTrack();
  lookAtHardwareVolume();
}

void PlayerState::Impl::onMultiOutput() {
  // Several devices at once have neither exclusive access nor integers.
  if (!link.engine().multiOutputDeviceUIDs().empty()) settings.showSharedFloat();
  note(PlayerChange::settings | PlayerChange::volume);
  lookAtHardwareVolume();
}

void PlayerState::Impl::playbackSettingChanged(bool changed) {
  if (changed) profileChanged();
  settingChanged(changed);
}

// --- Volume ---

void PlayerState::Impl::setVolume(double volume) {
  if (settings.setVolume(volume)) volumeChanged();
}

void PlayerState::Impl::setVolumeMode(VolumeMode mode) {
  if (mode == VolumeMode::hardware && !hardwareVolume) return;
  if (!settings.setVolumeMode(mode, hardwareVolume)) return;
  profileChanged();
  note(PlayerChange::settings);
  volumeChanged();
  lookAtHardwareVolume();
}

void PlayerState::Impl::volumeChanged() {
  note(PlayerChange::volume);
  // The compensation follows the volume, the headroom what it boosts.
  if (sound.isEffectEnabled(DSPEffectType::loudnessCompensation)) sound.updateHeadroom();
}

void PlayerState::Impl::onHardwareVolume(double volume) {
  hardwareVolume = volume;
  if (settings.volumeMode() != VolumeMode::hardware) return;
  if (settings.showVolume(volume)) volumeChanged();
}

void PlayerState::Impl::lookAtHardwareVolume() {
  auto found = std::make_shared<std::optional<float>>();
  link.call(
      [found](AudioEngine& engine) { *found = engine.hardwareVolume(engine.currentDevice()); },
      [this, found] {
        if (found->has_value() != hardwareVolume.has_value()) note(PlayerChange::settings);
        hardwareVolume.reset();
        if (*found) onHardwareVolume(**found);
      });
}

// --- The face ---

SoundSettings& PlayerState::sound() noexcept {
  return _impl->sound;
}
const SoundSettings& PlayerState::sound() const noexcept {
  return _impl->sound;
}
ABComparison& PlayerState::comparison() noexcept {
  return _impl->comparison;
}
double PlayerState::volume() const noexcept {
  return _impl->settings.volume();
}
void PlayerState::setVolume(double volume) {
  _impl->setVolume(volume);
}
VolumeMode PlayerState::volumeMode() const noexcept {
  return _impl->settings.volumeMode();
}
void PlayerState::setVolumeMode(VolumeMode mode) {
  _impl->setVolumeMode(mode);
}
bool PlayerState::hardwareVolumeAvailable() const noexcept {
  return _impl->hardwareVolume.has_value();
}
bool PlayerState::keepsAlbumsUncrossfaded() const noexcept {
  return _impl->settings.keepsAlbums();
}
void PlayerState::setKeepsAlbumsUncrossfaded(bool on) {
  _impl->settingChanged(_impl->settings.setKeepsAlbums(on));
}
bool PlayerState::gaplessEnabled() const noexcept {
  return _impl->settings.gapless();
}
void PlayerState::setGaplessEnabled(bool on) {
  _impl->playbackSettingChanged(_impl->settings.setGapless(on));
}
bool PlayerState::crossfadeEnabled() const noexcept {
  return _impl->settings.crossfade();
}
void PlayerState::setCrossfadeEnabled(bool on) {
  _impl->playbackSettingChanged(_impl->settings.setCrossfade(on));
}
double PlayerState::crossfadeDuration() const noexcept {
  return _impl->settings.crossfadeDuration();
}
void PlayerState::setCrossfadeDuration(double seconds) {
  _impl->playbackSettingChanged(_impl->settings.setCrossfadeDuration(seconds));
}
bool PlayerState::exclusiveMode() const noexcept {
  return _impl->settings.exclusiveMode();
}
void PlayerState::setExclusiveMode(bool on) {
  _impl->playbackSettingChanged(_impl->settings.setExclusiveMode(on));
}
bool PlayerState::integerMode() const noexcept {
  return _impl->settings.integerMode();
}
void PlayerState::setIntegerMode(bool on) {
  _impl->playbackSettingChanged(_impl->settings.setIntegerMode(on));
}
bool PlayerState::memoryPlayback() const noexcept {
  return _impl->settings.memoryPlayback();
}
void PlayerState::setMemoryPlayback(bool on) {
  _impl->playbackSettingChanged(_impl->settings.setMemoryPlayback(on));
}
int PlayerState::memoryPlaybackLimitMB() const noexcept {
  return _impl->settings.memoryPlaybackLimitMB();
}
void PlayerState::setMemoryPlaybackLimitMB(int mebibytes) {
  _impl->playbackSettingChanged(_impl->settings.setMemoryPlaybackLimitMB(mebibytes));
}
bool PlayerState::forceHighSampleRate() const noexcept {
  return _impl->settings.forceHighSampleRate();
}
void PlayerState::setForceHighSampleRate(bool on) {
  _impl->playbackSettingChanged(_impl->settings.setForceHighSampleRate(on));
}
SampleRateStrategy PlayerState::sampleRateStrategy() const noexcept {
  return _impl->settings.sampleRateStrategy();
}
void PlayerState::setSampleRateStrategy(SampleRateStrategy strategy) {
  _impl->playbackSettingChanged(_impl->settings.setSampleRateStrategy(strategy));
}
int PlayerState::resamplingMultiplier() const noexcept {
  return _impl->settings.resamplingMultiplier();
}
void PlayerState::setResamplingMultiplier(int multiplier) {
  _impl->playbackSettingChanged(_impl->settings.setResamplingMultiplier(multiplier));
}
double PlayerState::fixedSampleRate() const noexcept {
  return _impl->settings.fixedSampleRate();
}
void PlayerState::setFixedSampleRate(double rate) {
  _impl->playbackSettingChanged(_impl->settings.setFixedSampleRate(rate));
}
bool PlayerState::lowLatencyMode() const noexcept {
  return _impl->settings.lowLatencyMode();
}
void PlayerState::setLowLatencyMode(bool on) {
  _impl->playbackSettingChanged(_impl->settings.setLowLatencyMode(on));
}

}  // namespace velorin
