// What is counted and kept: the history, the stored session, the sleep timer's way to the sound.
#include "engine/AudioEngine.h"
#include "foundation/Log.h"
#include "foundation/Preferences.h"
#include "session/PlayerStateImpl.h"

namespace velorin {

void PlayerState::Impl::recordPlayback() {
  if (!currentTrack) return;
  const Track& track = currentTrack->track;
  const auto listen = listens.take(track.duration);
  if (!listen || currentTrack->isExternal || !track.id || !options.countsListens) return;
  history.record(*track.id, listens.now(), listen->seconds, listen->skipped);
  trail.rowWritten();
}

void PlayerState::Impl::addCurrentToHistory() {
  if (currentTrack && !isInHistory) {
    isInHistory = true;
    trail.add(*currentTrack);
    note(PlayerChange::history);
  }
  recordPlayback();
}

void PlayerState::Impl::countTheLeft() {
  if (trail.navigation()) return recordPlayback();
  addCurrentToHistory();
}

void PlayerState::Impl::loadMoreHistory() {
  const auto offset = trail.beginPage();
  note(PlayerChange::history);
  if (!offset) return;
  log::line("📜 History pagination: loading offset={} limit={}", *offset, HistoryTrail::kPageSize);
  auto apply = life.guard([this, clear = clears](std::vector<TrackInfo> page) {
    if (clear != clears) return;
    trail.finishPage(std::move(page));
    note(PlayerChange::history);
    // Places in the history have moved.
    updateNextTrack();
  });
  history.read(HistoryTrail::kPageSize, *offset, [apply](std::vector<TrackInfo> page) {
    MainThread::instance().post([apply, page = std::move(page)] { apply(page); });
  });
}

void PlayerState::Impl::bookmarksStored(std::int64_t trackId,
                                        const std::vector<TrackBookmark>& list) {
  const auto stored = list.empty() ? std::nullopt : std::optional(list);
  if (currentTrack && currentTrack->track.id == trackId) currentTrack->track.bookmarks = stored;
  updateTimeline([trackId, stored](const TrackInfo& item) -> std::optional<TrackInfo> {
    if (item.track.id != trackId) return std::nullopt;
    TrackInfo marked = item;
    marked.track.bookmarks = stored;
    return marked;
  });
  note(PlayerChange::bookmarks);
}

SleepTimer::Services PlayerState::Impl::sleepServices() {
  SleepTimer::Services sleeping;
  sleeping.isIntegerMode = [this] { return settings.integerMode(); };
  sleeping.volumeMode = [this] { return settings.volumeMode(); };
  sleeping.volume = [this] { return settings.volume(); };
  sleeping.setVolume = [this](double volume) {
    if (settings.fadeVolume(volume)) volumeChanged();
  };
  sleeping.deviceVolume = [this] {
    const AudioEngine& engine = link.engine();
    return engine.hardwareVolume(engine.currentDevice());
  };
  sleeping.setDeviceVolume = [this](float volume) {
    AudioEngine& engine = link.engine();
    return engine.setHardwareVolume(engine.currentDevice(), volume);
  };
  sleeping.updateNextTrack = [this] { updateNextTrack(); };
  sleeping.pause = [this](std::function<void()> done) {
    link.call([](AudioEngine& engine) { engine.pause(); }, std::move(done));
  };
  sleeping.stop = [this](std::function<void()> done) {
    link.stop();
    link.call([](AudioEngine&) {}, std::move(done));
  };
  sleeping.suspendMachine = services.suspendMachine;
  sleeping.powerOffMachine = services.powerOffMachine;
  sleeping.changed = [this] { note(PlayerChange::sleepTimer); };
  return sleeping;
}

std::optional<SavedSession> PlayerState::Impl::session(SessionParts parts) {
  if (!currentTrack) return std::nullopt;
  SavedSession saved;
  if (parts.has(SessionPart::position)) {
    saved.position = state == PlaybackState::playing
                         ? position.advanceTo(link.engine().currentPosition())
                         : restoredPosition.value_or(position.seconds());
    saved.duration = duration;
  }
  if (parts.has(SessionPart::place)) {
    saved.trackId = currentTrack->track.id.value_or(0);
    if (currentTrack->isExternal) saved.externalTrack = savedExternalOf(*currentTrack);
    saved.queueIndex = std::max(timeline.index(), 0);
    saved.isAutoplay = autoplay.isPlaying();
    if (const auto at = trail.navigation()) {
      saved.historyNavOffset = static_cast<std::int64_t>(trail.entries().size() - 1 - *at);
    }
  }
  if (parts.has(SessionPart::queue)) setQueue(saved, timeline.items());
  if (parts.has(SessionPart::autoplay)) {
    for (const TrackInfo& each : autoplay.tracks()) {
      saved.autoplayIds.push_back(each.track.id.value_or(0));
    }
  }
  return saved;
}

void PlayerState::Impl::restore(RestoreOutcome outcome) {
  sessionRestored = true;
  // What the listener asked for meanwhile goes first.
  const bool isUntouched = !currentTrack && timeline.items().empty() && playWish == 0;
  if (outcome.session && isUntouched) {
    RestoredSession& from = *outcome.session;
    timeline.restore(std::move(from.timeline), from.timelineIndex);
    trail.restore(std::move(from.history), from.historyFullyLoaded);
    if (from.historyNavigationIndex) trail.navigateTo(*from.historyNavigationIndex);
    autoplay.set(std::move(from.autoplayQueue));
    autoplay.setPlaying(from.isPlayingAutoplay);
    show(from.currentTrack);
    isInHistory = trail.navigation().has_value();
    duration = from.duration;
    restoredPosition = from.restoredPosition;
    position.jumpTo(from.currentPosition);
    note(PlayerChange::state | PlayerChange::position | PlayerChange::timeline |
         PlayerChange::autoplay | PlayerChange::history);
  }
  if (options.storesSession) saver.start(outcome.failed);
}

void PlayerState::Impl::note(PlayerChanges changed) {
  changes.note(changed);
  saver.changed(changed);
}

}  // namespace velorin
