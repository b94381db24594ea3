#include "library/queries/PlayTally.h"

#include <algorithm>

namespace velorin {

std::vector<TrackPlays> PlayTally::top(std::int64_t limit, std::int64_t minPlays) const {
  std::vector<TrackPlays> all;
  for (const auto& [trackId, plays] : _plays) {
    if (plays >= minPlays) all.push_back({trackId, plays});
  }
  const auto found = static_cast<std::int64_t>(all.size());
  const auto count = limit < 0 ? found : std::min(limit, found);
  std::partial_sort(all.begin(), all.begin() + count, all.end(),
                    [](const TrackPlays& a, const TrackPlays& b) {
                      return a.plays != b.plays ? a.plays > b.plays : a.trackId < b.trackId;
                    });
  all.resize(static_cast<std::size_t>(count));
  return all;
}

}  // namespace velorin
