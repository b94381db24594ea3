// Counts plays by track.
//
// SQLite groups by following an index all over the table. A history of millions of rows is counted
// several times as fast here, from the track ids that one walk over it gives.
#pragma once

#include <cstdint>
#include <vector>

namespace velorin {

/// How often one track was played.
struct TrackPlays {
  std::int64_t trackId = 0;
  std::int64_t plays = 0;
};

/// The tracks that a list names, one id a play; by id.
std::vector<TrackPlays> countPlays(std::vector<std::int64_t> trackIds);

/// Those with at least so many plays, most played first, then by id. A limit below 0 means all.
std::vector<TrackPlays> mostPlayed(std::vector<TrackPlays> tracks, std::int64_t limit,
                                   std::int64_t minPlays = 1);

}  // namespace velorin
