// Starting a track, and the steps from one to another.
#include <algorithm>
#include <cmath>

#include "engine/AudioEngine.h"
#include "foundation/Log.h"
#include "session/PlayerStateImpl.h"

namespace velorin {

using Region = QueuePlace::Region;

bool PlayerState::Impl::isIdle() const {
  return !isLoading && (state == PlaybackState::stopped || link.isStopping());
}

void PlayerState::Impl::show(const TrackInfo& track) {
  currentTrack = track;
  duration = track.track.duration;
  isInHistory = false;
  isNews = true;
  bookmarks.reload(currentTrack);
  note(PlayerChange::track | PlayerChange::bookmarks);
}

void PlayerState::Impl::go(QueuePlace place) {
  switch (place.region) {
    case Region::current:
      isInHistory = false;
      isNews = true;
      return;
    case Region::timeline:
      autoplay.setPlaying(false);
      trail.leave();
      timeline.select(place.index);
      show(timeline.items()[place.index]);
      break;
    case Region::autoplay:
      autoplay.setPlaying(true);
      trail.leave();
      show(autoplay.take(place.index));
      break;
    case Region::history:
      autoplay.setPlaying(false);
      trail.navigateTo(place.index);
      show(trail.entries()[place.index].track);
      break;
  }
  note(PlayerChange::timeline | PlayerChange::autoplay | PlayerChange::history);
}

void PlayerState::Impl::start(Reach how, double seconds) {
  if (!currentTrack) return;
  burst.cancel();
  reach = how;
  isLoading = true;
  isNews = true;
  isInHistory = false;
  position.jumpTo(seconds);
  listens.begin();
  note(PlayerChange::state | PlayerChange::position);
  bus.post(RemoteNeedsBroadcast{});
  link.play(currentTrack->track, {.position = seconds, .mustExist = currentTrack->isExternal});
}

void PlayerState::Impl::startWaiting() {
  if (!currentTrack) {
    if (timeline.size() > 0)
      playFromTimeline(static_cast<std::size_t>(std::max(timeline.index(), 0)));
    return;
  }
  if (listens.startedAt()) countTheLeft();
  duration = currentTrack->track.duration;
  const bool isRestored = restoredPosition.has_value();
  start(Reach::chosen, restoredPosition.value_or(0));
  updateNextTrack();
  if (isRestored && autoplay.tracks().empty()) refill(/*forced=*/true);
}

void PlayerState::Impl::togglePlayPause() {
  if (burst.cancel()) settleBurst();
  if (isIdle()) return startWaiting();
  link.call([](AudioEngine& engine) { engine.togglePlayPause(); });
}

void PlayerState::Impl::play() {
  if (burst.cancel()) settleBurst();
  if (isIdle()) return startWaiting();
  link.call([](AudioEngine& engine) { engine.resume(); });
}

void PlayerState::Impl::pause() {
  if (burst.cancel()) settleBurst();
  link.call([](AudioEngine& engine) { engine.pause(); });
}

void PlayerState::Impl::stop() {
  ++playWish;
  burst.cancel();
  stopAfterCurrent = false;
  isLoading = false;
  listens.halt();
  note(PlayerChange::state | PlayerChange::modes);
  link.stop();
  if (services.clearAccentColor) services.clearAccentColor();
}

void PlayerState::Impl::seek(double seconds) {
  if (!currentTrack || !std::isfinite(seconds)) return;
  const double length = duration > 0 ? duration : currentTrack->track.duration;
  const double target = length > 0 ? std::clamp(seconds, 0.0, length) : std::max(seconds, 0.0);
  if (burst.isRunning()) {
    burstPosition = target;
    position.jumpTo(target);
  } else if (isIdle()) {
    restoredPosition = target;
    position.jumpTo(target);
  } else {
    position.beginSeek(target);
    link.call([target](AudioEngine& engine) { engine.seek(target); },
              [this] { position.endSeek(); });
  }
  note(PlayerChange::position);
}

void PlayerState::Impl::next() {
  const bool isMoving = burst.isMoving();
  if (repeatMode == RepeatMode::one && currentTrack) {
    if (!isMoving) start(Reach::chosen);
    return;
  }
  if (!isMoving) {
    if (!burst.cancel()) countTheLeft();
  }
  const auto place = placeAfter(view());
  if (!place) {
    trail.leave();
    refill(/*forced=*/false);
    isBurstAtTheEnd = isMoving;
    if (isMoving) return;
    isLoading = false;
    listens.halt();
    note(PlayerChange::state | PlayerChange::history);
    return link.stop();
  }
  go(*place);
  if (isMoving) return;
  start(Reach::forward);
  updateNextTrack();
  if (place->region == Region::autoplay) refill(/*forced=*/false);
}

void PlayerState::Impl::previous() {
  const bool isMoving = burst.isMoving();
  if (repeatMode == RepeatMode::one && currentTrack) {
    if (!isMoving) start(Reach::chosen);
    return;
  }
  const auto place = placeBefore(view());
  if (!place) {
    if (!isMoving && !autoplay.isPlaying()) seek(0);
    return;
  }
  if (!isMoving && !burst.cancel()) recordPlayback();
  go(*place);
  if (isMoving) return;
  start(Reach::backward);
  updateNextTrack();
}

void PlayerState::Impl::skip(Reach direction) {
  if (!burst.isRunning()) {
    // Walking back leaves no step behind, which the walk would come to next.
    if (direction == Reach::backward) {
      recordPlayback();
    } else {
      countTheLeft();
    }
  }
  isBurstAtTheEnd = false;
  burstPosition = 0;
  burst.tap(
      [&] {
        if (direction == Reach::backward) return previous();
        next();
      },
      [this] { settleBurst(); });
  reach = direction;
}

void PlayerState::Impl::settleBurst() {
  if (isBurstAtTheEnd) {
    isBurstAtTheEnd = false;
    return link.stop();
  }
  start(reach, burstPosition);
  updateNextTrack();
  if (autoplay.isPlaying()) refill(/*forced=*/false);
}

void PlayerState::Impl::goOnWithout(const EngineLink::Outcome& outcome) {
  const bool isFileAtFault = outcome.kind == EngineLink::Outcome::Kind::unavailable;
  const std::size_t oneRound = timeline.size() + autoplay.tracks().size() + trail.entries().size();
  const bool mayGoOn = isFileAtFault && outcome.folderIsPresent && reach != Reach::chosen &&
                       repeatMode != RepeatMode::one && ++failuresInARow < oneRound;
  const auto place = !mayGoOn                   ? std::nullopt
                     : reach == Reach::backward ? placeBefore(view())
                                                : placeAfter(view());
  if (place) {
    log::line("ℹ️ Going on without what cannot be played: {}", currentTrack->track.filePath);
    const Reach direction = reach;
    go(*place);
    start(direction);
    return updateNextTrack();
  }
  // It stays selected, so that a later wish to play begins where this one would have.
  if (isFileAtFault && !restoredPosition) restoredPosition = position.seconds();
  isLoading = false;
  state = PlaybackState::stopped;
  progress.stop();
  note(PlayerChange::state);
}

}  // namespace velorin
