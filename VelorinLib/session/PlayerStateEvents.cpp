// What the engine and others tell, and the time that passes.
#include <algorithm>
#include <utility>

#include "dsp/DSPEffects.h"
#include "engine/AudioEngine.h"
#include "foundation/Log.h"
#include "foundation/Preferences.h"
#include "session/PlayerStateImpl.h"

namespace velorin {
namespace {

constexpr std::chrono::milliseconds kTickSeen{250};
constexpr std::chrono::milliseconds kTickUnseen{2000};
constexpr std::chrono::milliseconds kAfterMount{1000};

}  // namespace

using Region = QueuePlace::Region;
using Kind = EngineLink::Outcome::Kind;

void PlayerState::Impl::subscribe() {
  const auto on = [this]<class Event>(std::function<void(const Event&)> handler) {
    subscriptions.push_back(bus.subscribe<Event>(Delivery::mainThread, std::move(handler)));
  };
  on(std::function([this](const TrackDidChange& event) { onTrackDidChange(event); }));
  on(std::function([this](const PlaybackStateDidChange& e) { onStateDidChange(e.state); }));
  on(std::function([this](const PlayNextTrack& event) { onPlayNextTrack(event); }));
  on(std::function([this](const PlaybackFileUnavailable& event) { onUnavailable(event); }));
  on(std::function([this](const HardwareVolumeDidChange& e) { onHardwareVolume(e.volume); }));
  on(std::function([this](const AudioDeviceSettingsWillSwitch& e) { takeOver(e.settings); }));
  on(std::function([this](const AudioDevicesDidChange&) { lookAtHardwareVolume(); }));
  on(std::function([this](const MultiOutputDidChange&) { onMultiOutput(); }));
  on(std::function([this](const RequestNextTrack&) { updateNextTrack(); }));
  on(std::function([this](const PlayPreviousTrack&) { skip(Reach::backward); }));
  on(std::function([this](const SavePlaybackState&) {
    saveProfile();
    saver.saveNow();
  }));
  on(std::function(
      [this](const OpenExternalFiles& event) { playFiles(event.files, ServiceMode::playNow); }));
  on(std::function([this](const ServicePlayFiles& e) { playFiles(e.urls, e.mode); }));
  on(std::function([this](const TrackTagsDidChange& event) { onTagsDidChange(event); }));
  on(std::function([this](const LibraryDidClear&) { onLibraryDidClear(); }));
}

void PlayerState::Impl::onTrackDidChange(const TrackDidChange& event) {
  if (!link.accepts(event)) return;
  // What a burst shows is started in a moment.
  if (burst.isRunning()) return;
  if (event.join) {
    if (stopAfterCurrent || sleep.endOfTrack()) {
      countTheLeft();
      if (stopAfterCurrent) return stop();
      sleep.trackEnded();
      return;
    }
    takeOver(event.track);
  } else if (!currentTrack || !isSameItem(currentTrack->track, event.track)) {
    // Started by nobody we know.
    const auto place = timeline.find(event.track);
    if (place) {
      go({Region::timeline, *place});
    } else {
      show(upNext.infoOf(event.track));
    }
  }
  sourceBitDepth =
      event.sourceBitDepth != 0 ? event.sourceBitDepth : link.engine().sourceBitDepth();
  followTrack();
}

void PlayerState::Impl::takeOver(const Track& track) {
  countTheLeft();
  listens.begin();
  if (const auto place = upNext.placeOf(track)) {
    go(*place);
  } else if (const auto inTimeline = timeline.find(track)) {
    go({Region::timeline, *inTimeline});
  } else if (const auto inQueue = autoplay.find(track)) {
    go({Region::autoplay, *inQueue});
  } else {
    // Taken out of the lists too late: it is what is heard.
    trail.leave();
    show(upNext.infoOf(track));
  }
  reach = Reach::forward;
  if (autoplay.isPlaying()) refill(/*forced=*/false);
}

void PlayerState::Impl::followTrack() {
  AudioEngine& engine = link.engine();
  failuresInARow = 0;
  isLoading = false;
  listens.heard();
  if (!position.isSeeking()) position.jumpTo(engine.currentPosition());
  if (const double seconds = engine.duration(); seconds > 0) duration = seconds;
  outputSampleRate = engine.clientFormat().sampleRate;
  note(PlayerChange::track | PlayerChange::state | PlayerChange::position);

  updateNextTrack();
  sound.updateHeadroom();
  // The same track starts anew after a seek across a join, or on another device.
  if (!std::exchange(isNews, false)) return;
  if (services.loadWaveforms) {
    const auto following = static_cast<std::size_t>(timeline.index() + 1);
    services.loadWaveforms(*currentTrack,
                           following < timeline.size() ? &timeline.items()[following] : nullptr);
  }
  if (services.fetchMetadata && preferences.getBool("autoFetchMetadata").value_or(false)) {
    services.fetchMetadata(*currentTrack);
  }
  if (services.notifyTrackChange) services.notifyTrackChange(*currentTrack);
  if (services.announceNowPlaying) services.announceNowPlaying(*currentTrack);
}

void PlayerState::Impl::onStateDidChange(PlaybackState reported) {
  if (!link.isCurrent()) return;
  const bool isStale = reported == PlaybackState::stopped &&
                       (isLoading || link.engine().state() != PlaybackState::stopped);
  if (isStale) return;
  if (reported == PlaybackState::stopped) return becomeStopped();
  state = reported;
  if (reported == PlaybackState::paused) {
    // Without a window nobody has followed the position so far.
    position.advanceTo(link.engine().currentPosition());
  } else {
    if (!link.isWaiting()) isLoading = false;
    restoredPosition.reset();
    listens.heard();
    if (currentTrack && services.announceNowPlaying) services.announceNowPlaying(*currentTrack);
  }
  note(PlayerChange::state);
  runProgress();
}

void PlayerState::Impl::becomeStopped() {
  state = PlaybackState::stopped;
  isLoading = false;
  duration = 0;
  position.jumpTo(0);
  listens.halt();
  note(PlayerChange::state | PlayerChange::position | PlayerChange::track);
  runProgress();
}

void PlayerState::Impl::onPlayNextTrack(const PlayNextTrack& event) {
  if (!event.autoAdvance) return skip(Reach::forward);
  // The engine is silent when it says so: else another track was started meanwhile. And a track
  // may end by itself just before it is stopped.
  const bool isOld = burst.isRunning() || link.isWaiting() || link.isStopping() ||
                     !link.isCurrent() || link.engine().state() != PlaybackState::stopped;
  if (isOld) return;
  if (stopAfterCurrent) {
    countTheLeft();
    return stop();
  }
  if (sleep.endOfTrack()) {
    countTheLeft();
    sleep.trackEnded();
    return;
  }
  // A track that played out is counted with repeat one too; a listener's "next" would not be.
  if (repeatMode == RepeatMode::one) countTheLeft();
  next();
}

void PlayerState::Impl::onFinished(const EngineLink::Outcome& outcome) {
  switch (outcome.kind) {
    case Kind::started:
      isLoading = false;
      return onStateDidChange(link.engine().state());
    case Kind::stopped:
      if (state != PlaybackState::stopped) becomeStopped();
      return;
    case Kind::fileVanished:
      log::line("⚠️ External file not found: {}", currentTrack->track.filePath);
      timeline.dropVanished(currentTrack->track);
      listens.drop();
      note(PlayerChange::timeline);
      if (timeline.selected() == nullptr) return stop();
      go({Region::timeline, static_cast<std::size_t>(timeline.index())});
      start(reach);
      return updateNextTrack();
    case Kind::unavailable:
    case Kind::noOutput:
      listens.drop();
      return goOnWithout(outcome);
  }
}

void PlayerState::Impl::onUnavailable(const PlaybackFileUnavailable& event) {
  // Of a wish under way the outcome tells more.
  if (!link.acceptsUnavailable(event) || link.isWaiting()) return;
  isLoading = false;
  if (!restoredPosition && currentTrack) restoredPosition = position.seconds();
  note(PlayerChange::state);
}

void PlayerState::Impl::onTagsDidChange(const TrackTagsDidChange& event) {
  auto apply = life.guard([this](const std::vector<TrackInfo>& tracks) {
    std::unordered_map<std::int64_t, TrackInfo> byId;
    for (const TrackInfo& track : tracks) byId.emplace(*track.track.id, track);
    const auto mine =
        currentTrack && currentTrack->track.id ? byId.find(*currentTrack->track.id) : byId.end();
    if (mine != byId.end()) {
      currentTrack = mine->second;
      bookmarks.reload(currentTrack);
      note(PlayerChange::track | PlayerChange::bookmarks);
    }
    updateTimeline([byId = std::move(byId)](const TrackInfo& item) -> std::optional<TrackInfo> {
      const auto found = item.track.id ? byId.find(*item.track.id) : byId.end();
      return found != byId.end() ? std::optional(found->second) : std::nullopt;
    });
  });
  history.readTracks(event.trackIds, [apply](std::vector<TrackInfo> tracks) {
    MainThread::instance().post([apply, tracks = std::move(tracks)] { apply(tracks); });
  });
}

void PlayerState::Impl::updateTimeline(ItemUpdate update) {
  auto apply = life.guard([this](const TrackList::Changes& found) {
    timeline.apply(found);
    note(PlayerChange::timeline);
  });
  history.work([items = timeline.items(), update = std::move(update), apply] {
    TrackList::Changes found;
    for (const TrackInfo& item : items) {
      if (auto updated = update(item)) found.emplace(&item, std::move(*updated));
    }
    // With the items, whose addresses stay theirs until then.
    if (!found.empty()) MainThread::instance().post([apply, items, found] { apply(found); });
  });
}

void PlayerState::Impl::onLibraryDidClear() {
  ++clears;
  stop();
  sleep.cancel();
  listens.drop();
  currentTrack.reset();
  bookmarks.reload(currentTrack);
  timeline.clear();
  trail.clear();
  autoplay.reset();
  restoredPosition.reset();
  outputSampleRate = 0;
  becomeStopped();
  note(PlayerChange::track | PlayerChange::bookmarks | PlayerChange::timeline |
       PlayerChange::history | PlayerChange::autoplay | PlayerChange::modes);
  updateNextTrack();
  saver.saveNow();
}

void PlayerState::Impl::volumeMounted(const std::filesystem::path& mountPoint) {
  const auto waits = [this, mountPoint] {
    if (!currentTrack || !restoredPosition || !isIdle()) return false;
    const auto inside =
        std::filesystem::path(currentTrack->track.filePath).lexically_relative(mountPoint);
    return !inside.empty() && *inside.begin() != "..";
  };
  if (!waits()) return;
  log::line("🔁 Volume mounted, auto-retrying playback: {}", currentTrack->track.title);
  MainThread::instance().postAfter(kAfterMount, life.guard([this, waits] {
    if (waits()) startWaiting();
  }));
}

void PlayerState::Impl::runProgress() {
  const bool isPlaying = state == PlaybackState::playing;
  const bool isWatched = isPlaying && isWindowVisible;
  if (std::exchange(isSpectrumRunning, isWatched) != isWatched && services.runSpectrum) {
    services.runSpectrum(isWatched);
  }
  if (!isPlaying) return progress.stop();
  progress.start(isWindowVisible ? kTickSeen : kTickUnseen, [this] { tick(); });
}

void PlayerState::Impl::setWindowVisible(bool visible) {
  if (visible == isWindowVisible) return;
  isWindowVisible = visible;
  if (state == PlaybackState::playing) {
    runProgress();
    tick();
  }
}

void PlayerState::Impl::tick() {
  if (state != PlaybackState::playing || !currentTrack) return;
  if (!currentTrack->isExternal && services.scrobble) {
    const auto began = listens.takeScrobble(currentTrack->track.duration);
    if (began) services.scrobble(*currentTrack, *began);
  }
  if (!isWindowVisible) return;
  const double before = position.seconds();
  if (position.advanceTo(link.engine().currentPosition()) != before) note(PlayerChange::tick);
  if (duration <= 0 && link.engine().duration() > 0) {
    duration = link.engine().duration();
    note(PlayerChange::track);
  }
}

}  // namespace velorin
