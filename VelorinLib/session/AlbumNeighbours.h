// Whether one track leads into the next as it does on the record.
#pragma once

#include "records/TrackInfo.h"

namespace velorin {

/// True when `second` follows `first` on the same album: by the numbers of a disc, from the last
/// track of a disc to the first of the next, or, where numbers are missing, because they stand one
/// after the other where they are played, which the caller says. Pure.
bool areAlbumNeighbours(const TrackInfo& first, const TrackInfo& second, bool areConsecutive);

}  // namespace velorin
