// The rules of a smart playlist as a statement.
//
// A pure function, any thread.
#pragma once

#include <cstdint>
#include <set>

#include "library/queries/FocusSQL.h"
#include "records/SmartPlaylistRules.h"

namespace velorin {

/// The statement that selects the ids of the tracks that the rules choose, in their order. Every
/// value of a rule is bound. A rule whose operator says nothing about its field (`isTrue` of a
/// title) is dropped: it does not restrict, and rules that all drop out choose the whole library.
///
/// favouriteIds: the tracks that `isFavourite` speaks of. Up to 500 are bound one by one, more as
/// one JSON text, since a statement has room for a limited number of values.
SqlFragment smartPlaylistSQL(const SmartPlaylistRules& rules,
                             const std::set<std::int64_t>& favouriteIds);

}  // namespace velorin
