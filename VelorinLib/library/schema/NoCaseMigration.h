// The step that makes artists and albums unique whatever the case of their letters.
#pragma once

#include "library/sqlite/Connection.h"

namespace velorin::schema {

/// Merges artists, then albums of one artist, that differ only in the case of A-Z: the oldest row
/// stays, with its spelling, and the tracks move to it. Then gives artists.name and albums.title
/// the collation NOCASE. For the tables as they stood at v8, without foreign-key enforcement.
void mergeCaseTwins(sqlite::Connection& connection);

}  // namespace velorin::schema
