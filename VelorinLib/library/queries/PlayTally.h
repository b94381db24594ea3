// Counts plays by track.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace velorin {

/// How often one track was played.
struct TrackPlays {
  std::int64_t trackId = 0;
  std::int64_t plays = 0;
};

/// SQLite groups rows by sorting them, or by following an index all over the table; a history of
/// millions of rows is counted several times as fast here, in one walk.
class PlayTally {
 public:
  void add(std::int64_t trackId) { ++_plays[trackId]; }
  void remove(std::int64_t trackId) { _plays.erase(trackId); }

  std::int64_t tracks() const noexcept { return static_cast<std::int64_t>(_plays.size()); }

  /// The tracks with at least so many plays, most played first, then by id. A limit below 0 means
  /// all.
  std::vector<TrackPlays> top(std::int64_t limit, std::int64_t minPlays = 1) const;

 private:
  std::unordered_map<std::int64_t, std::int64_t> _plays;
};

}  // namespace velorin
