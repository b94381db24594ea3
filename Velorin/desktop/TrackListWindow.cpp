#include "desktop/TrackListWindow.h"

#include <algorithm>

namespace velorin {
namespace {

bool haveSameItems(const TrackList& a, const TrackList& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (&a[i] != &b[i]) return false;
  }
  return true;
}

}  // namespace

void TrackListWindow::update(const TrackList& timeline, int current) {
  if (!haveSameItems(_timeline, timeline)) {
    forgetWhatIsGone(timeline);
    _timeline = timeline;
  }
  const std::size_t middle =
      std::min(static_cast<std::size_t>(std::max(current, 0)), timeline.size());
  const std::size_t first = middle - std::min(middle, kBefore);
  const std::size_t last = std::min(timeline.size(), middle + kAfter + 1);
  _items.clear();
  std::unordered_map<const TrackInfo*, std::size_t> seen;
  for (std::size_t i = first; i < last; ++i) {
    std::vector<MprisTrackId>& ids = _ids[&timeline[i]];
    const std::size_t occurrence = seen[&timeline[i]]++;
    if (occurrence >= ids.size()) ids.push_back(newId());
    _items.push_back({.id = ids[occurrence], .index = i});
  }
}

void TrackListWindow::forgetWhatIsGone(const TrackList& timeline) {
  if (_ids.empty()) return;
  std::unordered_map<const TrackInfo*, std::vector<MprisTrackId>> kept;
  for (const TrackInfo& item : timeline) {
    if (auto node = _ids.extract(&item)) kept.insert(std::move(node));
  }
  _ids = std::move(kept);
}

std::optional<std::size_t> TrackListWindow::indexOf(MprisTrackId id) const {
  const auto found = std::ranges::find(_items, id, &Item::id);
  return found == _items.end() ? std::nullopt : std::optional(found->index);
}

std::optional<MprisTrackId> TrackListWindow::idAt(std::size_t index) const {
  const auto found = std::ranges::find(_items, index, &Item::index);
  return found == _items.end() ? std::nullopt : std::optional(found->id);
}

std::optional<MprisTrackId> TrackListWindow::idOf(const TrackInfo& item) const {
  const auto found = _ids.find(&item);
  return found == _ids.end() ? std::nullopt : std::optional(found->second.front());
}

}  // namespace velorin
