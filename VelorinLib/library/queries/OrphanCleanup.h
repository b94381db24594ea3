// Albums and artists that have lost tracks are put right, or go.
//
// Called inside a write, behind whatever removed tracks or gave them other parents.
#pragma once

#include <unordered_set>

#include "library/sqlite/Connection.h"

namespace velorin {

/// Parents of tracks that were removed.
struct Bereaved {
  std::unordered_set<std::int64_t> albums;
  std::unordered_set<std::int64_t> artists;
};

/// Sets each album's worstFormat to that of its weakest track (of equals, the one with the lowest
/// id), then deletes the albums without tracks, and the artists without tracks and albums.
/// Walks over the whole library.
void cleanUpOrphans(sqlite::Writer& writer);

/// The same for these albums and artists only; what it costs depends on their number.
void cleanUpOrphans(sqlite::Writer& writer, const Bereaved& parents);

}  // namespace velorin
