// A parsed CUE sheet and its audio file become items.
#pragma once

#include <string>
#include <vector>

#include "foundation/Result.h"
#include "library/cue/CueSheet.h"
#include "library/cue/CueText.h"
#include "library/metadata/MetadataExtracting.h"
#include "records/ScannedItem.h"

namespace velorin {

/// Where the tracks of a sheet come from.
struct CueSource {
  CueSheet sheet;
  std::string sheetPath;
  std::string audioPath;  ///< of the sheet's first file
};

/// Why a sheet could not be used: in one line without its path, and as the log tells it.
struct CueTrouble {
  std::string reason;
  std::string logLine;
};

/// Parses a sheet and finds the audio file of its first FILE line, wherever that leads. Any thread;
/// blocks for the disk.
Result<CueSource, CueTrouble> sourceOf(const CueText& text, const std::string& sheetPath);

/// One item for each track of the sheet's first file that lasts longer than nothing. A track ends
/// where the next one begins, the last one with the file, so that a pre-gap belongs to the track
/// before it. What the audio file's tags tell of the album goes before what the sheet tells. Fails
/// when the audio file cannot be read. Any thread; blocks for the disk.
Result<std::vector<ScannedItem>, CueTrouble> itemsOf(CueSource source,
                                                     const std::vector<std::string>& watchedRoots,
                                                     const ArtworkLookup& artwork);

}  // namespace velorin
