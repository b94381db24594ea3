// Files that are opened from outside the library.
//
// What these functions return is not stored: `isExternal` is set, and the ids of album and artist
// are kExternalId. They run on the caller's thread and block for the disk.
#pragma once

#include <string>
#include <vector>

#include "records/TrackInfo.h"

namespace velorin {

inline constexpr std::int64_t kExternalId = -1;

/// What a file says of itself; of one that cannot be read, its name alone, with a duration of 0.
TrackInfo trackInfoFromFile(const std::string& path);

/// The tracks of a CUE sheet: parts of its audio file, or the files that it names, with the titles
/// that it gives them. Empty when the sheet cannot be read, is broken, or lacks its audio files.
std::vector<TrackInfo> trackInfosFromCue(const std::string& sheetPath);

}  // namespace velorin
