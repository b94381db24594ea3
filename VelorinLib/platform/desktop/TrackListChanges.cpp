#include "platform/desktop/TrackListChanges.h"

#include <unordered_map>

namespace velorin {

TrackListChanges changesBetween(const std::vector<MprisTrack>& before,
                                const std::vector<MprisTrack>& after, std::size_t most) {
  std::unordered_map<MprisTrackId, std::size_t> placeBefore;
  for (std::size_t i = 0; i < before.size(); ++i) placeBefore.emplace(before[i].id, i);

  TrackListChanges changes;
  std::vector<bool> stays(before.size());
  std::optional<std::size_t> last;
  for (std::size_t i = 0; i < after.size(); ++i) {
    const auto found = placeBefore.find(after[i].id);
    if (found == placeBefore.end()) {
      changes.added.push_back({.index = i, .after = std::nullopt});
      if (i > 0) changes.added.back().after = after[i - 1].id;
      continue;
    }
    const std::size_t place = found->second;
    stays[place] = true;
    if (last && place < *last)
      return {.isReplaced = true, .removed = {}, .added = {}, .edited = {}};
    last = place;
    if (before[place] != after[i]) changes.edited.push_back(i);
  }
  for (std::size_t i = 0; i < before.size(); ++i) {
    if (!stays[i]) changes.removed.push_back(before[i].id);
  }
  if (changes.added.size() + changes.removed.size() > most) {
    return {.isReplaced = true, .removed = {}, .added = {}, .edited = {}};
  }
  return changes;
}

}  // namespace velorin
