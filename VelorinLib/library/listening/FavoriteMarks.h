// The marks of favourites, which live in the preferences as ids of tracks.
//
// Any thread but the render thread, one at a time. Failures throw VelorinDatabaseError.
#pragma once

#include "library/DatabaseHandle.h"

namespace velorin {

class Preferences;

/// A list of 64-bit ids.
inline constexpr const char* kFavoriteTrackIds = "favoriteTrackIds";

/// Notes in the library which tracks are favourites, so that one that leaves it is known again.
void noteFavorites(const DatabaseHandle& database, const Preferences& preferences);

/// Puts the ids of rows that came back in the place of those that they had, drops those of a
/// library that was cleared, and writes the preferences to disk. How far it came is among the
/// preferences too: no succession is followed twice. They are forgotten a day later.
void followSuccessions(const DatabaseHandle& database, Preferences& preferences);

}  // namespace velorin
