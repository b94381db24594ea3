// What was played, and the walk back through it.
#pragma once

#include <optional>
#include <vector>

#include "session/PlayerTypes.h"

namespace velorin {

/// Pure; one thread. The listener is either at the end of the trail, in the timeline or in what
/// autoplay gave, or walks in it: then navigation() is where.
class HistoryTrail {
 public:
  static constexpr std::size_t kMostEntries = 500;
  static constexpr std::size_t kPageSize = 50;

  const std::vector<HistoryEntry>& entries() const noexcept { return _entries; }
  std::optional<std::size_t> navigation() const noexcept { return _navigation; }
  void navigateTo(std::size_t index) { _navigation = index; }
  void leave() { _navigation.reset(); }

  /// A step that was made; beyond the most that are kept the oldest goes.
  void add(const TrackInfo& track);
  /// A row was written to the stored history, with or without a step of the trail: pages that are
  /// read later begin behind it.
  void rowWritten() { ++_rowsKnown; }

  /// What was read at the start, oldest first.
  void restore(std::vector<HistoryEntry> entries, bool fullyLoaded);
  void clear();

  /// True when there may be older entries, and room for them.
  bool fullyLoaded() const noexcept { return _fullyLoaded; }
  bool isPaginating() const noexcept { return _isPaginating; }
  /// Begins to read a page; nothing when there is none to read. The page is `kPageSize` rows from
  /// that offset on, counted from the newest.
  std::optional<std::size_t> beginPage();
  /// The tracks of the page, oldest first; none when it could not be read.
  void finishPage(std::vector<TrackInfo> tracks);

 private:
  std::vector<HistoryEntry> _entries;  // oldest first
  std::optional<std::size_t> _navigation;
  std::size_t _rowsKnown = 0;  // of the stored history, counted from its newest
  bool _fullyLoaded = false;
  bool _isPaginating = false;
};

}  // namespace velorin
