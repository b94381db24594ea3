// The migrations "v30_departed_tracks" and "v31_history_by_track".
#pragma once

#include "library/sqlite/Connection.h"

namespace velorin::schema {

/// What the listener did to tracks whose rows are gone, kept until the tracks come back; and what
/// is known of the sound of those that are there.
void createDepartedTracks(sqlite::Connection& file);

/// The history, parked or not, is found by track without a look at row after row.
void gatherHistoryByTrack(sqlite::Connection& file);

}  // namespace velorin::schema
