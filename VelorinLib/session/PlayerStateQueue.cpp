// The lists, the modes, and what comes next.
#include "engine/AudioEngine.h"
#include "foundation/Log.h"
#include "foundation/Preferences.h"
#include "session/AlbumNeighbours.h"
#include "session/PlayerStateImpl.h"

namespace velorin {

using Region = QueuePlace::Region;

QueueView PlayerState::Impl::view() const {
  return {.timelineCount = timeline.size(),
          .timelineIndex = timeline.index(),
          .autoplayCount = autoplay.tracks().size(),
          .isPlayingAutoplay = autoplay.isPlaying(),
          .autoplayGoesOn = autoplay.goesOn(),
          .historyCount = trail.entries().size(),
          .navigation = trail.navigation(),
          .repeatMode = repeatMode,
          .hasCurrent = currentTrack.has_value()};
}

const TrackInfo& PlayerState::Impl::trackAt(QueuePlace place) const {
  switch (place.region) {
    case Region::timeline:
      return timeline.items()[place.index];
    case Region::autoplay:
      return autoplay.tracks()[place.index];
    case Region::history:
      return trail.entries()[place.index].track;
    case Region::current:
      break;
  }
  return *currentTrack;
}

void PlayerState::Impl::updateNextTrack(Refill refilling) {
  // What a burst shows does not play yet.
  if (burst.isRunning()) return;
  const bool joins = settings.gapless() || settings.crossfade();
  std::optional<QueuePlace> place;
  if (joins && !stopAfterCurrent && !sleep.endOfTrack()) {
    place = placeAfterEnd(view());
    if (!place && refilling == Refill::mayFollow) refill(/*forced=*/false);
  }
  if (!place) {
    upNext.clear();
    return link.engine().setNextTrack(std::nullopt);
  }
  const TrackInfo& following = trackAt(*place);
  upNext.set(*place, following);
  link.engine().setNextTrack(following.track, mayCrossfadeInto(*place));
}

bool PlayerState::Impl::mayCrossfadeInto(QueuePlace place) const {
  if (!settings.keepsAlbums() || !currentTrack) return true;
  const bool isFollowing = place.region == Region::timeline && !autoplay.isPlaying() &&
                           !trail.navigation() &&
                           static_cast<int>(place.index) == timeline.index() + 1;
  return !areAlbumNeighbours(*currentTrack, trackAt(place), isFollowing);
}

void PlayerState::Impl::settingChanged(bool changed) {
  if (!changed) return;
  note(PlayerChange::settings);
  updateNextTrack();
}

void PlayerState::Impl::refill(bool forced) {
  // An answer that comes at once asks for the next track anew.
  if (!services.refillAutoplay || isRefilling) return;
  isRefilling = true;
  services.refillAutoplay(forced);
  isRefilling = false;
}

void PlayerState::Impl::setAutoplayQueue(std::vector<TrackInfo> tracks, bool append) {
  if (append) {
    autoplay.append(std::move(tracks));
  } else {
    autoplay.set(std::move(tracks));
  }
  note(PlayerChange::autoplay);
  // No answer is an answer too: it is not asked for again.
  updateNextTrack(Refill::never);
}

void PlayerState::Impl::timelineEdited() {
  note(PlayerChange::timeline);
  updateNextTrack();
}

void PlayerState::Impl::clearTimeline() {
  timeline.clear();
  autoplay.set({});
  autoplay.setPlaying(false);
  note(PlayerChange::timeline | PlayerChange::autoplay);
  if (autoplay.isEnabled()) refill(/*forced=*/true);
  updateNextTrack();
}

void PlayerState::Impl::setShuffle(bool on) {
  if (on == timeline.isShuffled()) return;
  preferences.setBool("shuffleEnabled", on);
  timeline.setShuffled(on, currentTrack ? &*currentTrack : nullptr);
  note(PlayerChange::modes | PlayerChange::timeline);
  updateNextTrack();
}

void PlayerState::Impl::setRepeatMode(RepeatMode mode) {
  if (mode == repeatMode) return;
  repeatMode = mode;
  preferences.setInt("repeatMode", static_cast<std::int64_t>(mode));
  note(PlayerChange::modes);
  updateNextTrack();
}

void PlayerState::Impl::setStopAfterCurrent(bool on) {
  stopAfterCurrent = on;
  note(PlayerChange::modes);
  updateNextTrack();
}

void PlayerState::Impl::toggleAutoplay() {
  const bool on = !autoplay.isEnabled();
  autoplay.setEnabled(on);
  preferences.setBool("autoplayEnabled", on);
  log::line("🎵 toggleAutoplay: {}, clearing queue ({} items)", on ? "ON" : "OFF",
            autoplay.tracks().size());
  autoplay.set({});
  note(PlayerChange::modes | PlayerChange::autoplay);
  if (on) refill(/*forced=*/true);
  updateNextTrack();
}

}  // namespace velorin
