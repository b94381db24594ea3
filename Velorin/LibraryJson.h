// The records of the library as `--json` prints them.
//
// Members carry the names of the fields; what is not known is null. Moments are in UTC,
// "2026-01-31T12:00:00.000Z".
#pragma once

#include "JsonOutput.h"
#include "records/Playlist.h"
#include "records/TrackInfo.h"

namespace velorin {

JsonObject json(const Artist& artist);
JsonObject json(const Playlist& playlist);
/// With its members "track", "album" and "artist".
JsonObject json(const TrackInfo& info);
/// With its members "album" and "artist", and its figures.
JsonObject json(const AlbumInfo& info);

/// "2026-01-31T12:00:00.000Z".
std::string jsonMoment(std::chrono::system_clock::time_point moment);

}  // namespace velorin
