#include "engine/AudioEngine.h"

#include "dsp/settings/EffectSettings.h"
#include "engine/AudioEngineImpl.h"
#include "foundation/Preferences.h"

namespace velorin {
namespace {

DSPChainConfig startUpChain(const Preferences& preferences, DSPEffects& effects) {
  if (auto stored = storedChain(preferences)) return std::move(*stored);
  return chainOfSwitches([&](DSPEffectType type) { return effects.effect(type).isEnabled(); });
}

}  // namespace

AudioEngine::Impl::Impl(AudioHardware& hardware_, Preferences& preferences_, EventBus& bus_)
    : hardware(hardware_),
      preferences(preferences_),
      bus(bus_),
      effects(std::make_shared<DSPEffects>(
          HeadphoneProfileDatabase::shared(),
          preferences.getBool("dspDiagnosticsEnabled").value_or(false))),
      progressTimer(bus_, controls, effects),
      devices(hardware_, bus_),
      follower(hardware_, devices, preferences),
      aggregates(hardware_),
      settings(EngineSettings::load(preferences)),
      output(hardware_, devices),
      profiles(preferences, *effects) {
  joins->settings.setGaplessEnabled(preferences.getBool("gaplessPlayback").value_or(true));
  joins->settings.setCrossfadeEnabled(preferences.getBool("crossfadePlayback").value_or(false));
  joins->settings.setCrossfadeDuration(preferences.getDouble("crossfadeDuration").value_or(0));
  joins->files.memory().setOn(preferences.getBool("memoryPlayback").value_or(false));
  joins->files.memory().setLimitMB(preferences.getInt("memoryPlaybackLimitMB").value_or(0));
  joins->files.volumes().setPreferences(&preferences);
  {
    MutexLock hold(owner->mutex);
    owner->impl = this;
  }
  // A fill thread that is left behind may announce when there is no engine any more.
  joins->announce = [owner_ = owner](const SharedFacts& joined, int generation) {
    postTrackChange(owner_, joined, generation, std::chrono::milliseconds(0));
  };
  loadEffects(*effects, preferences);
  effects->applyChain(startUpChain(preferences, *effects).entries);
  startDevices();
}

AudioEngine::AudioEngine(AudioHardware& hardware, Preferences& preferences, EventBus& bus)
    : _impl(std::make_unique<Impl>(hardware, preferences, bus)) {}

AudioEngine::~AudioEngine() {
  {
    MutexLock hold(_impl->owner->mutex);
    _impl->owner->impl = nullptr;
  }
  _impl->joins->files.volumes().setPreferences(nullptr);
  _impl->devicesListener.reset();
  _impl->defaultOutputListener.reset();
  _impl->volumeListener.stop();
  shutDown();
}

void AudioEngine::play(const Track& track, std::optional<double> startTime) {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->play(track, startTime);
}

void AudioEngine::setPatience(std::function<bool()> isStillWanted) {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->isStillWanted = std::move(isStillWanted);
}

void AudioEngine::stop() {
  ++_impl->stopsWanted;
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->stop();
}

void AudioEngine::shutDown() {
  ++_impl->stopsWanted;
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->isClosing = true;
  // Cleared first, for it tells stop() that the device is to be given back.
  _impl->settings.exclusiveMode = false;
  _impl->stop();
}

void AudioEngine::pause() {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->pause();
}

void AudioEngine::resume() {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->resume();
}

void AudioEngine::togglePlayPause() {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  switch (_impl->nowPlaying.state()) {
    case PlaybackState::stopped:
      if (const auto last = _impl->nowPlaying.lastTrack()) _impl->play(*last, std::nullopt);
      break;
    case PlaybackState::playing:
      _impl->pause();
      break;
    case PlaybackState::paused:
      _impl->resume();
      break;
  }
}

void AudioEngine::seek(double time) {
  _impl->seek(time);
}

PlaybackState AudioEngine::state() const {
  return _impl->nowPlaying.state();
}
double AudioEngine::currentPosition() const {
  return _impl->currentPosition();
}
double AudioEngine::duration() const {
  return _impl->nowPlaying.duration();
}
std::optional<Track> AudioEngine::currentTrack() const {
  return _impl->nowPlaying.currentTrack();
}
std::optional<Track> AudioEngine::lastTrack() const {
  return _impl->nowPlaying.lastTrack();
}
int AudioEngine::sourceBitDepth() const {
  return _impl->nowPlaying.sourceBitDepth();
}
int AudioEngine::playGeneration() const {
  return _impl->playGeneration.load();
}

void AudioEngine::setNextTrack(std::optional<Track> next, bool mayCrossfade) {
  std::optional<NextTrack::Wish> wish;
  if (next) wish = {.track = std::move(*next), .mayCrossfade = mayCrossfade};
  _impl->setNextTrack(std::move(wish));
}

std::optional<Track> AudioEngine::nextTrack() const {
  auto wish = _impl->joins->nextTrack.get();
  return wish ? std::optional(std::move(wish->track)) : std::nullopt;
}

bool AudioEngine::gaplessTransitionPending() const noexcept {
  const auto session = _impl->currentSession();
  return session && !session->join.isIdle();
}

std::int64_t AudioEngine::gaplessCountdown() const noexcept {
  const auto session = _impl->currentSession();
  return session ? session->clock.countdown() : PositionClock::kNever;
}

PlaybackFacts AudioEngine::facts() const {
  return _impl->facts();
}

StreamFormat AudioEngine::fileFormat() const {
  const auto heard = _impl->heardSource();
  return heard ? heard->fileFormat : StreamFormat{};
}

StreamFormat AudioEngine::clientFormat() const {
  const auto session = _impl->currentSession();
  return session ? session->clientFormat : StreamFormat{};
}

std::optional<DecoderInfo> AudioEngine::decoderInfo() const {
  const auto heard = _impl->heardSource();
  return heard ? std::optional(heard->decoderInfo) : std::nullopt;
}

bool AudioEngine::isIntegerOutput() const {
  const auto session = _impl->currentSession();
  return session && session->isIntegerOutput;
}

bool AudioEngine::isDSDPlayback() const {
  const auto heard = _impl->heardSource();
  return heard && heard->dsd;
}

bool AudioEngine::dsdRateDowngraded() const {
  const auto heard = _impl->heardSource();
  return heard && heard->dsd && heard->dsd->isDowngraded;
}

bool AudioEngine::canRender(std::uint32_t frames) const {
  PlaybackSession* session = _impl->renderingSession.load(std::memory_order_acquire);
  if (session == nullptr || session->cells.isOver.load()) return true;
  const TransportCells& cells = session->cells;
  const std::int64_t countdown = session->clock.countdown();
  // A track that is heard is announced, and the wish for the one behind it known, before anything
  // more of it: how two tracks are joined does not depend on how fast they are rendered.
  const bool isAnnouncing = countdown == 0 || session->join.state() == PendingJoin::State::applying;
  // So is what the controller wished for last.
  const bool isAnswered = cells.answeredWish.load() == session->joins->nextTrack.version();
  if (!session->seek.isPending() && !isAnnouncing && isAnswered) {
    if (session->ring.framesHeld() >= frames || cells.eofReached.load()) return true;
    // Nothing more comes until the joined track is heard, which only rendering brings about.
    if (cells.fillStalled.load() && countdown > 0) return true;
  }
  session->waker.signal();
  return false;
}

float AudioEngine::volume() const {
  return _impl->controls->volume.load();
}

void AudioEngine::setVolume(float linear) {
  if (!std::isnan(linear)) _impl->controls->volume.store(std::clamp(linear, 0.0f, 1.0f));
}

VolumeMode AudioEngine::volumeMode() const {
  return _impl->controls->volumeMode.load();
}
bool AudioEngine::integerMode() const {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  return _impl->settings.integerMode;
}

void AudioEngine::setIntegerMode(bool on) {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->settings.integerMode = on;
}

bool AudioEngine::gaplessEnabled() const noexcept {
  return _impl->joins->settings.gaplessEnabled();
}
void AudioEngine::setGaplessEnabled(bool on) {
  _impl->joins->settings.setGaplessEnabled(on);
}
bool AudioEngine::crossfadePlaybackEnabled() const noexcept {
  return _impl->joins->settings.crossfadeEnabled();
}
void AudioEngine::setCrossfadePlaybackEnabled(bool on) {
  _impl->joins->settings.setCrossfadeEnabled(on);
}
double AudioEngine::crossfadeDuration() const noexcept {
  return _impl->joins->settings.crossfadeDuration();
}
void AudioEngine::setCrossfadeDuration(double seconds) {
  _impl->joins->settings.setCrossfadeDuration(seconds);
}

bool AudioEngine::exclusiveMode() const {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  return _impl->settings.exclusiveMode;
}

void AudioEngine::setExclusiveMode(bool on) {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->setExclusiveMode(on);
}

SampleRateStrategy AudioEngine::sampleRateStrategy() const {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  return _impl->settings.rates.strategy;
}

void AudioEngine::setSampleRateStrategy(SampleRateStrategy strategy) {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->settings.rates.strategy = strategy;
}

int AudioEngine::resamplingMultiplier() const {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  return _impl->settings.rates.multiplier;
}

void AudioEngine::setResamplingMultiplier(int multiplier) {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->settings.rates.multiplier = std::max(2, multiplier);
}

double AudioEngine::fixedSampleRate() const {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  return _impl->settings.rates.fixedRate;
}

void AudioEngine::setFixedSampleRate(double rate) {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->settings.rates.fixedRate = rate;
}

bool AudioEngine::forceHighSampleRate() const {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  return _impl->settings.rates.forceHighRate;
}

void AudioEngine::setForceHighSampleRate(bool on) {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->settings.rates.forceHighRate = on;
}

bool AudioEngine::lowLatencyMode() const {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  return _impl->settings.lowLatencyMode;
}

void AudioEngine::setLowLatencyMode(bool on) {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->settings.lowLatencyMode = on;
  if (on) _impl->fillThread.elevate();
}

bool AudioEngine::memoryPlayback() const noexcept {
  return _impl->joins->files.memory().isOn();
}
void AudioEngine::setMemoryPlayback(bool on) noexcept {
  _impl->joins->files.memory().setOn(on);
}
int AudioEngine::memoryPlaybackLimitMB() const noexcept {
  return _impl->joins->files.memory().limitMB();
}
void AudioEngine::setMemoryPlaybackLimitMB(int mebibytes) noexcept {
  _impl->joins->files.memory().setLimitMB(mebibytes);
}

DSPEffects& AudioEngine::effects() {
  return *_impl->effects;
}

void AudioEngine::applyDSPChainConfig(const std::vector<DSPChainEntry>& entries) {
  RecursiveMutexLock hold(_impl->lifecycleLock);
  _impl->effects->applyChain(entries);
}
SpectrumCaptureRing& AudioEngine::spectrumCaptureRing() {
  return _impl->spectrumCaptureRing;
}

void AudioEngine::setSpectrumCaptureEnabled(bool on) {
  _impl->controls->spectrumCaptureEnabled.store(on);
}

}  // namespace velorin
