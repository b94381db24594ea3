// The migration "v30_departed_tracks".
#pragma once

#include "library/sqlite/Connection.h"

namespace velorin::schema {

/// What the listener did to tracks whose rows are gone, kept until the tracks come back; and what
/// is known of the sound of those that are there.
void createDepartedTracks(sqlite::Connection& file);

}  // namespace velorin::schema
