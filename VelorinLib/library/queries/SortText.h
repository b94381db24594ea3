// The ORDER BY text of every listing.
//
// A text is a primary expression with its direction, then the tie-breaks, which carry none. Track
// and album texts call the tables by their names; a tie-break that repeats the primary is left
// out. Pure functions, any thread.
#pragma once

#include <string>

#include "records/Sorts.h"

namespace velorin {

/// Wants "tracks", "albums" and "artists".
std::string orderText(const TrackSort& sort);
/// Wants "albums" and "artists".
std::string orderText(const AlbumSort& sort);
/// Wants "artists" under the name "a", and the result columns "albumCount" and "trackCount".
std::string orderText(const ArtistSort& sort);
/// Wants the result columns "name" and "trackCount".
std::string orderText(const CategorySort& sort);

/// Newest first: what stands where a listing of tracks has no sort at all.
inline constexpr const char* kOrderNewestFirst = "tracks.id DESC";

inline constexpr const char* kOrderWithinAlbum =
    "tracks.discNumber, tracks.trackNumber, tracks.cueStartTime";

inline constexpr const char* kOrderWithinArtist =
    "albums.year, albums.title COLLATE NOCASE, "
    "tracks.discNumber, tracks.trackNumber, tracks.cueStartTime";

/// Of the albums of one artist.
inline constexpr const char* kAlbumOrderWithinArtist = "albums.year, albums.title COLLATE NOCASE";

}  // namespace velorin
