// How a row of "tracks", "albums" or "artists" becomes a record: the one place for each table.
//
// The column lists name the columns with their tables, in the order in which the readers take
// them.
#pragma once

#include "library/sqlite/Statement.h"
#include "records/TrackInfo.h"

namespace velorin::rows {

extern const std::string kTrackColumns;
extern const std::string kAlbumColumns;
extern const std::string kArtistColumns;

sqlite::RowReader& operator>>(sqlite::RowReader& reader, Track& track);
sqlite::RowReader& operator>>(sqlite::RowReader& reader, Album& album);
sqlite::RowReader& operator>>(sqlite::RowReader& reader, Artist& artist);

}  // namespace velorin::rows
