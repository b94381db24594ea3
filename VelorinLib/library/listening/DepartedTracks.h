// What the listener did to a track, kept while the track has no row.
//
// Parked are plays, skips, rating, bookmarks, time-coded lyrics, the rows of the history and the
// places in playlists, together with what the track is known by. A pin of the track stays among the
// pins, under the old id, and so does the mark of a favourite; the succession of ids that is noted
// when the track comes back leads both to the new one.
//
// Everything here runs inside a write of the caller. Failures throw VelorinDatabaseError.
#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <unordered_set>
#include <utility>
#include <vector>

#include "library/listening/PlaylistPlaces.h"
#include "records/Track.h"

namespace velorin {

/// Parks those of these tracks that the listener did anything to; before their rows are deleted.
/// At most sqlite::kSliceSize ids.
void parkTracks(sqlite::Writer& writer, std::span<const std::int64_t> ids);
/// The same for all tracks of the library.
void parkAllTracks(sqlite::Writer& writer);

/// Takes what the listener did from a track whose file holds other audio now, and parks it under an
/// id below 0, which is returned; empty when there was nothing. The row stays, and so do the
/// lyrics, which may be those of the new audio.
std::optional<std::int64_t> parkBesideRow(sqlite::Writer& writer, std::int64_t trackId);

/// Stands in a succession of ids for a track that is gone for good. No row has it.
inline constexpr std::int64_t kNoTrack = 0;

/// Drops all that is parked, pins and successions included. The tracks that are favourites are
/// noted as gone for good, so that no row that gets one of their ids is taken for one.
void forgetDeparted(sqlite::Writer& writer);

/// Whether a row's file is taken to hold the sound that was known of the departed track.
enum class Sound { same, other };

/// Gives what is parked under an id to a row: counters add up, a rating, bookmarks and lyrics that
/// the row has stay, the history moves. The places in playlists go to `places`, whose settle() the
/// caller calls in the same transaction.
void giveBack(sqlite::Writer& writer, std::int64_t departedId, std::int64_t trackId, Sound sound,
              PlaylistPlaces& places);

/// The id that a track has now, for who may know it by the id that it had when it began to play:
/// that of its row, or the one that it is parked under. An id that nothing is known of stays.
std::int64_t presentId(sqlite::Reader& reader, std::int64_t trackId);

/// Adds a play or skip to what is parked. False when nothing is parked under this id.
bool addToParked(sqlite::Writer& writer, std::int64_t departedId,
                 std::chrono::system_clock::time_point playedAt, double duration, bool skipped);

/// Gives new rows what is parked for the same file and CUE start. For one transaction; costs
/// nothing measurable while nothing is parked, else a look-up for each row.
///
/// A file that took over the path of another one is told apart by its length: where the two differ
/// by more than kSameRecording, what is parked is left for the search by sound.
class ReturningTracks {
 public:
  static constexpr double kSameRecording = 2.0;  ///< seconds

  explicit ReturningTracks(sqlite::Writer& writer);

  /// A row was inserted.
  void arrived(std::int64_t id, const Track& track);
  /// At the end of the transaction: gives the rows what is theirs, and puts the tracks back into
  /// their playlists.
  void settle();

 private:
  sqlite::Writer& _writer;
  bool _anyParked;
  PlaylistPlaces _places;
  std::optional<std::int64_t> _before;      // the succession before the first that arrived
  std::unordered_set<std::int64_t> _given;  // of two rows of one file the first gets it
  // A path may have departed twice; with the row that takes both.
  std::vector<std::pair<std::int64_t, std::int64_t>> _more;
};

}  // namespace velorin
