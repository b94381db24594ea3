#include "library/queries/PlayCounts.h"

#include <algorithm>

namespace velorin {

std::vector<TrackPlays> countPlays(std::vector<std::int64_t> trackIds) {
  std::sort(trackIds.begin(), trackIds.end());
  std::vector<TrackPlays> tracks;
  for (const std::int64_t id : trackIds) {
    if (tracks.empty() || tracks.back().trackId != id) tracks.push_back({id, 0});
    ++tracks.back().plays;
  }
  return tracks;
}

std::vector<TrackPlays> mostPlayed(std::vector<TrackPlays> tracks, std::int64_t limit,
                                   std::int64_t minPlays) {
  std::erase_if(tracks, [&](const TrackPlays& track) { return track.plays < minPlays; });
  const auto found = static_cast<std::int64_t>(tracks.size());
  const auto count = limit < 0 ? found : std::min(limit, found);
  std::partial_sort(tracks.begin(), tracks.begin() + count, tracks.end(),
                    [](const TrackPlays& a, const TrackPlays& b) {
                      return a.plays != b.plays ? a.plays > b.plays : a.trackId < b.trackId;
                    });
  tracks.resize(static_cast<std::size_t>(count));
  return tracks;
}

}  // namespace velorin
