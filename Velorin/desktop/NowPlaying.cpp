#include "desktop/NowPlaying.h"

#include <algorithm>
#include <utility>

#include "records/TrackDisplay.h"
#include "session/PlayerState.h"

namespace velorin {
namespace {

constexpr double kLongest = 1e9;  ///< seconds; some thirty years
constexpr int kMostStars = 5;

MprisStatus statusOf(const PlayerState& player, MprisStatus before) {
  switch (player.state()) {
    case PlaybackState::playing:
      return MprisStatus::playing;
    case PlaybackState::paused:
      return MprisStatus::paused;
    case PlaybackState::stopped:
      break;
  }
  return player.isLoading() ? before : MprisStatus::stopped;
}

bool hasNext(const PlayerState& player) {
  const auto following = static_cast<std::size_t>(player.timelineIndex() + 1);
  return following < player.timeline().size() || player.historyNavigationIndex().has_value() ||
         player.repeatMode() != RepeatMode::off ||
         ((player.autoplayEnabled() || player.radioSeedTrackId()) &&
          !player.autoplayQueue().empty());
}

bool hasPrevious(const PlayerState& player) {
  if (player.repeatMode() == RepeatMode::one) return player.currentTrack().has_value();
  if (const auto index = player.historyNavigationIndex(); index && !player.isPlayingAutoplay()) {
    return *index > 0;
  }
  return player.timelineIndex() >= (player.isPlayingAutoplay() ? 0 : 1) ||
         !player.history().empty();
}

}  // namespace

std::int64_t microseconds(double seconds) noexcept {
  if (!(seconds > 0)) return 0;
  return static_cast<std::int64_t>(std::min(seconds, kLongest) * 1e6 + 0.5);
}

MprisLoop mprisLoop(RepeatMode mode) noexcept {
  switch (mode) {
    case RepeatMode::one:
      return MprisLoop::track;
    case RepeatMode::all:
      return MprisLoop::playlist;
    case RepeatMode::off:
      break;
  }
  return MprisLoop::none;
}

RepeatMode repeatMode(MprisLoop loop) noexcept {
  switch (loop) {
    case MprisLoop::track:
      return RepeatMode::one;
    case MprisLoop::playlist:
      return RepeatMode::all;
    case MprisLoop::none:
      break;
  }
  return RepeatMode::off;
}

MprisTrack mprisTrack(const TrackInfo& info, MprisTrackId id, std::string coverPath) {
  const Track& track = info.track;
  MprisTrack told;
  told.id = id;
  told.filePath = track.filePath;
  told.coverPath = std::move(coverPath);
  told.length = microseconds(track.duration);
  told.title = track.title;
  told.artist = info.artist.name;
  told.album = info.album.title;
  // The record names the track's artist alone; the album's is known when they are one.
  if (info.artist.id && info.album.artistId == *info.artist.id) told.albumArtist = info.artist.name;
  told.composer = track.composer.value_or("");
  told.genre = genreShown(info);
  told.comment = track.comment.value_or("");
  told.trackNumber = track.trackNumber;
  told.discNumber = track.discNumber;
  told.year = track.year ? track.year : info.album.year;
  if (!info.isExternal) told.useCount = track.totalPlays;
  if (track.rating) {
    told.userRating = static_cast<double>(std::clamp(*track.rating, 0, kMostStars)) / kMostStars;
  }
  return told;
}

MprisState mprisState(const PlayerState& player, MprisStatus before) {
  const bool hasTrack = player.currentTrack().has_value();
  MprisState told;
  told.status = statusOf(player, before);
  told.loop = mprisLoop(player.repeatMode());
  told.shuffle = player.shuffleEnabled();
  told.volume = player.volume();
  told.canGoNext = hasNext(player);
  told.canGoPrevious = hasPrevious(player);
  told.canPlay = hasTrack || !player.timeline().empty();
  told.canPause = hasTrack;
  told.canSeek = hasTrack && player.state() != PlaybackState::stopped;
  return told;
}

bool tellsTrack(const PlayerState& player) {
  return player.currentTrack() && (player.state() != PlaybackState::stopped || player.isLoading() ||
                                   player.restoredPosition());
}

}  // namespace velorin
