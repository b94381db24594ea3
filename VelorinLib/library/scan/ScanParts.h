// What a scan works with.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "library/DatabaseHandle.h"
#include "library/metadata/MetadataExtracting.h"
#include "library/queries/TrackRemoval.h"
#include "library/scan/LibraryUpdateThrottle.h"
#include "library/scan/ScanReport.h"
#include "library/scan/ScanSettings.h"

namespace velorin {

class Preferences;

/// Lives as long as the scanner. The references outlive all of it; the extractor may be held longer
/// by a thread that hangs in a file.
struct ScanParts {
  const DatabaseHandle& database;
  const TrackRemoval& removal;  ///< the one that tells the similarity index
  EventBus& events;
  const Preferences& preferences;
  LibraryUpdateThrottle& throttle;  ///< the one of the process
  std::shared_ptr<const MetadataExtracting> extractor;
  /// See FolderArtwork.h.
  std::function<std::optional<std::string>(const std::string& folder)> findArtwork;
};

/// How a scan talks with the one who started it. Any thread; copied, and maybe called after the
/// scan, so they hold weakly what they lead to.
struct ScanCallbacks {
  std::function<void(const std::string& text)> updateStatus;
  std::function<void(std::size_t processed, std::size_t total)> updateProgress;
  std::function<void()> waitIfPaused;  ///< blocks while the scan is paused
  std::function<bool()> isCancelled;
};

}  // namespace velorin
