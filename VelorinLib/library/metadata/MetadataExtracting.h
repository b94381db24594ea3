// One music file becomes one item on its way into the library.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Result.h"
#include "records/ScannedItem.h"

namespace velorin {

/// Finds the cover picture that lies in a folder: the path of the picture, or nothing. Called on
/// the extracting thread.
using ArtworkLookup = std::function<std::optional<std::string>(const std::string& folder)>;

/// Why a file could not be read, in one line without its path.
struct ExtractFailure {
  std::string reason;
};

/// What reads files for a scan. Stateless: any number of threads may extract at a time.
class MetadataExtracting {
 public:
  virtual ~MetadataExtracting() = default;

  /// Reads a file's technical values and tags. All texts are valid UTF-8 without NUL, whatever the
  /// tags hold; the path is kept as it is. The size and time are those from before the reading, so
  /// that a file that grows meanwhile is seen as changed by the next scan. Never blocks on a pipe
  /// or a device.
  ///
  /// watchedRoots: the music folders, whose own names say nothing about what is in them.
  virtual Result<ScannedItem, ExtractFailure> extract(const std::string& path,
                                                      const std::vector<std::string>& watchedRoots,
                                                      const ArtworkLookup& artwork) const = 0;
};

}  // namespace velorin
