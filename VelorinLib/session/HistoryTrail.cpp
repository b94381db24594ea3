#include "session/HistoryTrail.h"

#include "foundation/Uuid.h"

namespace velorin {
namespace {

std::vector<HistoryEntry> entriesOf(std::vector<TrackInfo> tracks) {
  std::vector<HistoryEntry> entries;
  entries.reserve(tracks.size());
  for (TrackInfo& track : tracks) entries.push_back({makeUuid(), std::move(track)});
  return entries;
}

}  // namespace

void HistoryTrail::add(const TrackInfo& track) {
  _entries.push_back({makeUuid(), track});
  if (_entries.size() <= kMostEntries) return;
  _entries.erase(_entries.begin());
  if (_navigation && *_navigation > 0) --*_navigation;
}

void HistoryTrail::restore(std::vector<HistoryEntry> entries, bool fullyLoaded) {
  clear();
  _rowsKnown = entries.size();
  _fullyLoaded = fullyLoaded;
  _entries = std::move(entries);
}

void HistoryTrail::clear() {
  *this = HistoryTrail();
}

std::optional<std::size_t> HistoryTrail::beginPage() {
  if (_fullyLoaded || _isPaginating) return std::nullopt;
  if (_entries.size() >= kMostEntries) {
    _fullyLoaded = true;
    return std::nullopt;
  }
  _isPaginating = true;
  return _rowsKnown;
}

void HistoryTrail::finishPage(std::vector<TrackInfo> tracks) {
  _isPaginating = false;
  if (tracks.size() < kPageSize) _fullyLoaded = true;
  const std::size_t added = tracks.size();
  _rowsKnown += added;
  auto older = entriesOf(std::move(tracks));
  _entries.insert(_entries.begin(), std::make_move_iterator(older.begin()),
                  std::make_move_iterator(older.end()));
  if (_navigation) *_navigation += added;
  if (_entries.size() <= kMostEntries) return;
  const std::size_t surplus = _entries.size() - kMostEntries;
  _entries.erase(_entries.begin(), _entries.begin() + static_cast<std::ptrdiff_t>(surplus));
  if (_navigation) _navigation = *_navigation > surplus ? *_navigation - surplus : 0;
  _fullyLoaded = true;
}

}  // namespace velorin
