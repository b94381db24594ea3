// What was played and skipped, and the lists that follow from it.
#pragma once

#include <chrono>
#include <unordered_map>
#include <vector>

#include "library/DatabaseHandle.h"
#include "records/TrackInfo.h"

namespace velorin {

class EventBus;

/// A track and how often it was played in the time that was asked for.
struct TopTrack {
  TrackInfo info;
  std::int64_t plays = 0;
};

/// Where tracks were played equally often, the one with the lower id comes first. A skip is no
/// play. `days` counts back from `now`; below 0 it counts as 0. A limit below 0 means all.
///
/// Any thread but the render thread; errors are thrown as VelorinDatabaseError.
class PlaybackHistory {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  /// The bus, which may be absent, outlives this object.
  explicit PlaybackHistory(const DatabaseHandle& database, EventBus* events = nullptr)
      : _database(database), _events(events) {}

  /// Adds a row, counts it in the track's totals, and then posts PlaybackHistoryDidUpdate on the
  /// main thread. `duration` is what was heard, in seconds; what is not a number above 0 is kept
  /// as 0. A track whose file was scanned anew meanwhile is known by its old id for a day, and one
  /// that is parked gets it there. Throws for a track that is not in the library.
  void recordPlay(std::int64_t trackId, TimePoint playedAt, double duration, bool skipped);

  /// A page of the history, skips included, counted from the newest row: oldest first inside the
  /// page, a track as often as it was played.
  std::vector<TrackInfo> fetchHistory(std::int64_t limit, std::int64_t offset = 0) const;

  /// Each track once, by its last play or skip, newest first.
  std::vector<TrackInfo> fetchRecentlyPlayed(std::int64_t limit) const;

  std::vector<TrackInfo> fetchMostPlayed(int days, std::int64_t limit,
                                         TimePoint now = std::chrono::system_clock::now()) const;

  /// The same with the number of plays.
  std::vector<TopTrack> fetchTopTracks(int days, std::int64_t limit,
                                       TimePoint now = std::chrono::system_clock::now()) const;

  /// The most played of the last days, with at least so many plays.
  std::vector<TrackInfo> fetchOnRepeat(int days, int minPlays, std::int64_t limit,
                                       TimePoint now = std::chrono::system_clock::now()) const;

  /// Played at least so many times, but not once in the last days; most played first.
  std::vector<TrackInfo> fetchForgotten(int days, int minPlays, std::int64_t limit,
                                        TimePoint now = std::chrono::system_clock::now()) const;

  /// The most played inside a window of the listener's day: from the hour `from` to the hour `to`,
  /// which is outside. Above `to`, `from` opens a window across midnight; equal hours mean the
  /// whole day.
  std::vector<TrackInfo> fetchByHour(int from, int to, std::int64_t limit) const;
  /// The number of different tracks played inside such a window.
  std::int64_t countByHour(int from, int to) const;

  /// By track id; a track without a row in the history is not among them.
  std::unordered_map<std::int64_t, TrackPlayStats> fetchPlayStats(
      const std::vector<std::int64_t>& ids) const;

  /// Tracks that were never played to the end, newest file first.
  std::vector<TrackInfo> fetchUnplayed(std::int64_t limit) const;

  /// The albums that got a track last, newest first. The greatest sample rate and bit depth are
  /// left empty.
  std::vector<AlbumInfo> fetchRecentAlbums(std::int64_t limit) const;

  /// The albums that were played last, skips included, newest first. The number of tracks is that
  /// of the tracks played, and each play adds to the duration; the greatest sample rate and bit
  /// depth are left empty.
  std::vector<AlbumInfo> fetchRecentlyPlayedAlbums(std::int64_t limit) const;

  /// No value takes the rating away. Nothing happens without such a track.
  void setRating(std::int64_t trackId, std::optional<int> rating);

 private:
  const DatabaseHandle& _database;
  EventBus* _events;
};

}  // namespace velorin
