#include "session/PlayerState.h"

#include "engine/AudioEngine.h"
#include "foundation/Preferences.h"
#include "session/PlayerStateImpl.h"

namespace velorin {
namespace {

Bookmarks::Services bookmarkServices(
    const PlayerServices& services,
    std::function<void(std::int64_t, const std::vector<TrackBookmark>&)> stored) {
  return {.database = services.database, .beep = services.beep, .stored = std::move(stored)};
}

}  // namespace

PlayerState::Impl::Impl(AudioEngine& engine, Preferences& preferences_, EventBus& bus_,
                        PlayerServices services_, Options options_)
    : preferences(preferences_),
      bus(bus_),
      services(std::move(services_)),
      options(options_),
      timeline(options.shuffleSeed ? *options.shuffleSeed : std::random_device()()),
      listens(options.now ? options.now : std::chrono::system_clock::now),
      bookmarks(bookmarkServices(services,
                                 [this](std::int64_t id, const std::vector<TrackBookmark>& list) {
                                   bookmarksStored(id, list);
                                 })),
      sessionStore(preferences_),
      saver(sessionStore, {.session = [this](SessionParts parts) { return session(parts); },
                           .isPlaying = [this] { return state == PlaybackState::playing; }}),
      restorer(preferences_, services.database),
      history(services.database),
      link(engine, [this](const EngineLink::Outcome& outcome) { onFinished(outcome); }),
      settings(preferences_, [this](auto call) { link.call(std::move(call)); }),
      sound(engine, preferences_, soundServices()),
      comparison(sound, [this] { note(PlayerChange::effects); }),
      sleep(preferences_, sleepServices()) {
  timeline.rememberShuffled(preferences.getBool("shuffleEnabled").value_or(false));
  repeatMode = repeatModeFromRaw(preferences.getInt("repeatMode").value_or(0));
  autoplay.setEnabled(preferences.getBool("autoplayEnabled").value_or(true));
  subscribe();
  lookAtHardwareVolume();
  if (options.restoresSession) {
    restorer.restore([this](RestoreOutcome outcome) { restore(std::move(outcome)); });
  } else {
    restore({});
  }
}

PlayerState::PlayerState(AudioEngine& engine, Preferences& preferences, EventBus& bus,
                         PlayerServices services, Options options)
    : _impl(std::make_unique<Impl>(engine, preferences, bus, std::move(services), options)) {}

PlayerState::PlayerState(AudioEngine& engine, Preferences& preferences, EventBus& bus,
                         PlayerServices services)
    : PlayerState(engine, preferences, bus, std::move(services), Options()) {}

PlayerState::~PlayerState() {
  _impl->saveProfile();
}

// --- What to play ---

void PlayerState::Impl::playTracks(TrackList tracks, std::size_t start, double seconds) {
  if (start >= tracks.size()) return;
  ++playWish;
  if (!burst.cancel()) addCurrentToHistory();
  autoplay.reset();
  restoredPosition.reset();
  timeline.setTo(std::move(tracks), start);
  note(PlayerChange::modes);
  go({QueuePlace::Region::timeline, static_cast<std::size_t>(timeline.index())});
  this->start(Reach::forward, seconds);
  updateNextTrack();
  refill(/*forced=*/true);
}

void PlayerState::Impl::playFiles(std::vector<std::filesystem::path> paths, ServiceMode mode) {
  if (mode == ServiceMode::playNow) ++playWish;
  auto use = life.guard([this, mode, wish = playWish](const TrackList& tracks) {
    if (tracks.empty()) return;
    switch (mode) {
      case ServiceMode::playNow:
        if (wish == playWish) playTracks(tracks, 0);
        return;
      case ServiceMode::playNext:
        timeline.insertAfterCurrent(tracks);
        return timelineEdited();
      case ServiceMode::playLater:
        timeline.append(tracks);
        return timelineEdited();
    }
  });
  files.read(std::move(paths), [use](std::vector<TrackInfo> tracks) {
    MainThread::instance().post([use, list = TrackList(std::move(tracks))] { use(list); });
  });
}

void PlayerState::Impl::playAlone(const TrackInfo& track) {
  ++playWish;
  if (!burst.cancel()) addCurrentToHistory();
  autoplay.reset();
  restoredPosition.reset();
  timeline.restore(TrackList({track}), 0);
  note(PlayerChange::modes);
  go({QueuePlace::Region::timeline, 0});
  start(Reach::chosen);
  updateNextTrack();
  refill(/*forced=*/true);
}

void PlayerState::Impl::playFromTimeline(std::size_t index) {
  if (index >= timeline.size()) return;
  const bool isHere = static_cast<int>(index) == timeline.index() && !autoplay.isPlaying() &&
                      !trail.navigation() && !burst.isRunning();
  if (isHere && !isIdle()) return seek(0);
  ++playWish;
  if (!burst.cancel()) addCurrentToHistory();
  restoredPosition.reset();
  go({QueuePlace::Region::timeline, index});
  start(Reach::chosen);
  updateNextTrack();
}

void PlayerState::Impl::playFromHistory(std::size_t index) {
  if (index >= trail.entries().size()) return;
  ++playWish;
  recordPlayback();
  restoredPosition.reset();
  go({QueuePlace::Region::history, index});
  start(Reach::chosen);
  updateNextTrack();
}

void PlayerState::Impl::playFromAutoplayQueue(const TrackInfo& track) {
  ++playWish;
  recordPlayback();
  restoredPosition.reset();
  if (const auto at = autoplay.find(track.track)) {
    go({QueuePlace::Region::autoplay, *at});
  } else {
    trail.leave();
    autoplay.setPlaying(true);
    show(TrackInfo(track));
  }
  start(Reach::chosen);
  updateNextTrack();
  refill(/*forced=*/false);
}

void PlayerState::playTracks(std::vector<TrackInfo> tracks, std::size_t startIndex,
                             double position) {
  _impl->playTracks(std::move(tracks), startIndex, position);
}
void PlayerState::playFiles(std::vector<std::filesystem::path> files) {
  _impl->playFiles(std::move(files), ServiceMode::playNow);
}
void PlayerState::playFiles(std::vector<std::filesystem::path> files, ServiceMode mode) {
  _impl->playFiles(std::move(files), mode);
}
void PlayerState::playAlone(const TrackInfo& track) {
  _impl->playAlone(track);
}
void PlayerState::playFromTimeline(std::size_t index) {
  _impl->playFromTimeline(index);
}
void PlayerState::playFromHistory(std::size_t index) {
  _impl->playFromHistory(index);
}
void PlayerState::playFromAutoplayQueue(const TrackInfo& track) {
  _impl->playFromAutoplayQueue(track);
}

// --- Transport ---

void PlayerState::togglePlayPause() {
  _impl->togglePlayPause();
}
void PlayerState::play() {
  _impl->play();
}
void PlayerState::pause() {
  _impl->pause();
}
void PlayerState::stop() {
  _impl->stop();
}
void PlayerState::next() {
  _impl->next();
}
void PlayerState::previous() {
  _impl->previous();
}
void PlayerState::nextDebounced() {
  _impl->skip(Impl::Reach::forward);
}
void PlayerState::previousDebounced() {
  _impl->skip(Impl::Reach::backward);
}
void PlayerState::seek(double position) {
  _impl->seek(position);
}

// --- Modes ---

void PlayerState::toggleShuffle() {
  _impl->setShuffle(!shuffleEnabled());
}
void PlayerState::setShuffle(bool on) {
  _impl->setShuffle(on);
}
void PlayerState::toggleRepeat() {
  _impl->setRepeatMode(repeatMode() == RepeatMode::off   ? RepeatMode::all
                       : repeatMode() == RepeatMode::all ? RepeatMode::one
                                                         : RepeatMode::off);
}
void PlayerState::setRepeatMode(RepeatMode mode) {
  _impl->setRepeatMode(mode);
}
void PlayerState::toggleStopAfterCurrent() {
  _impl->setStopAfterCurrent(!_impl->stopAfterCurrent);
}
void PlayerState::toggleAutoplay() {
  _impl->toggleAutoplay();
}

// --- The timeline ---

void PlayerState::appendToTimeline(std::vector<TrackInfo> tracks) {
  _impl->timeline.append(std::move(tracks));
  _impl->timelineEdited();
}
void PlayerState::insertAfterCurrent(std::vector<TrackInfo> tracks) {
  _impl->timeline.insertAfterCurrent(std::move(tracks));
  _impl->timelineEdited();
}
void PlayerState::removeFromTimeline(std::size_t index) {
  if (_impl->timeline.remove(index)) _impl->timelineEdited();
}
void PlayerState::moveInTimeline(std::size_t from, std::size_t to) {
  if (_impl->timeline.move(from, to)) _impl->timelineEdited();
}
void PlayerState::moveUp(std::size_t index) {
  if (index > 0) moveInTimeline(index, index - 1);
}
void PlayerState::moveDown(std::size_t index) {
  moveInTimeline(index, index + 2);
}
void PlayerState::clearTimeline() {
  _impl->clearTimeline();
}

const TrackList& PlayerState::timeline() const noexcept {
  return _impl->timeline.items();
}
int PlayerState::timelineIndex() const noexcept {
  return _impl->timeline.index();
}
const TrackList& PlayerState::originalTimeline() const noexcept {
  return _impl->timeline.original();
}

// --- History ---

const std::vector<HistoryEntry>& PlayerState::history() const noexcept {
  return _impl->trail.entries();
}
std::optional<std::size_t> PlayerState::historyNavigationIndex() const noexcept {
  return _impl->trail.navigation();
}
bool PlayerState::historyFullyLoaded() const noexcept {
  return _impl->trail.fullyLoaded();
}
bool PlayerState::isPaginatingHistory() const noexcept {
  return _impl->trail.isPaginating();
}
void PlayerState::loadMoreHistory() {
  _impl->loadMoreHistory();
}

// --- Autoplay and radio ---

const std::vector<TrackInfo>& PlayerState::autoplayQueue() const noexcept {
  return _impl->autoplay.tracks();
}
void PlayerState::setAutoplayQueue(std::vector<TrackInfo> tracks, bool append) {
  _impl->setAutoplayQueue(std::move(tracks), append);
}
bool PlayerState::autoplayEnabled() const noexcept {
  return _impl->autoplay.isEnabled();
}
bool PlayerState::isPlayingAutoplay() const noexcept {
  return _impl->autoplay.isPlaying();
}
std::optional<std::int64_t> PlayerState::radioSeedTrackId() const noexcept {
  return _impl->autoplay.radioSeed();
}
void PlayerState::setRadioSeedTrackId(std::optional<std::int64_t> trackId) {
  _impl->autoplay.setRadioSeed(trackId);
  _impl->note(PlayerChange::modes);
}

// --- What is going on ---

const std::optional<TrackInfo>& PlayerState::currentTrack() const noexcept {
  return _impl->currentTrack;
}
PlaybackState PlayerState::state() const noexcept {
  return _impl->state;
}
bool PlayerState::isLoading() const noexcept {
  return _impl->isLoading;
}
double PlayerState::currentPosition() const noexcept {
  return _impl->position.seconds();
}
double PlayerState::livePosition() const {
  const bool isHeard =
      _impl->state != PlaybackState::stopped && !_impl->isLoading && !_impl->burst.isRunning();
  return isHeard ? _impl->position.advanceTo(_impl->link.engine().currentPosition())
                 : _impl->position.seconds();
}
double PlayerState::duration() const noexcept {
  return _impl->duration;
}
int PlayerState::sourceBitDepth() const noexcept {
  return _impl->sourceBitDepth;
}
double PlayerState::outputSampleRate() const noexcept {
  return _impl->outputSampleRate;
}
bool PlayerState::shuffleEnabled() const noexcept {
  return _impl->timeline.isShuffled();
}
RepeatMode PlayerState::repeatMode() const noexcept {
  return _impl->repeatMode;
}
bool PlayerState::stopAfterCurrent() const noexcept {
  return _impl->stopAfterCurrent;
}
std::optional<double> PlayerState::restoredPosition() const noexcept {
  return _impl->restoredPosition;
}

// --- Bookmarks ---

const std::vector<TrackBookmark>& PlayerState::currentBookmarks() const noexcept {
  return _impl->bookmarks.list();
}
void PlayerState::addBookmark(double position) {
  _impl->bookmarks.add(position);
}
void PlayerState::removeBookmark(const std::string& id) {
  _impl->bookmarks.remove(id);
}
void PlayerState::updateBookmark(const std::string& id, std::optional<std::string> label,
                                 std::optional<std::string> color) {
  _impl->bookmarks.update(id, std::move(label), std::move(color));
}

// --- Sleep timer ---

void PlayerState::startSleepTimer(int seconds) {
  _impl->sleep.start(seconds);
}
void PlayerState::startSleepTimerEndOfTrack() {
  _impl->sleep.startEndOfTrack();
}
void PlayerState::cancelSleepTimer() {
  _impl->sleep.cancel();
}
bool PlayerState::sleepTimerRuns() const noexcept {
  return _impl->sleep.isCounting() || _impl->sleep.endOfTrack();
}
int PlayerState::sleepTimerSecondsRemaining() const noexcept {
  return _impl->sleep.secondsRemaining();
}
bool PlayerState::sleepTimerEndOfTrack() const noexcept {
  return _impl->sleep.endOfTrack();
}
SleepTimerAction PlayerState::sleepTimerAction() const noexcept {
  return _impl->sleep.action();
}
void PlayerState::setSleepTimerAction(SleepTimerAction action) {
  _impl->sleep.setAction(action);
}
bool PlayerState::sleepTimerFadeEnabled() const noexcept {
  return _impl->sleep.fadeEnabled();
}
void PlayerState::setSleepTimerFadeEnabled(bool on) {
  _impl->sleep.setFadeEnabled(on);
}

// --- For the shell ---

void PlayerState::setWindowVisible(bool visible) {
  _impl->setWindowVisible(visible);
}
void PlayerState::volumeMounted(const std::filesystem::path& mountPoint) {
  _impl->volumeMounted(mountPoint);
}
void PlayerState::saveSession() {
  _impl->saver.saveNow();
}
bool PlayerState::sessionRestored() const noexcept {
  return _impl->sessionRestored;
}
AudioEngine& PlayerState::engine() noexcept {
  return _impl->link.engine();
}
SerialQueue& PlayerState::engineQueue() noexcept {
  return _impl->link.queue();
}

PlayerState::Observation PlayerState::observe(std::function<void(PlayerChanges)> changed) {
  Observation observation;
  observation._token = _impl->changes.observe(std::move(changed));
  return observation;
}

}  // namespace velorin
