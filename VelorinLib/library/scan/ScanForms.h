// The forms of a scan: folders that are new, all folders as they changed, all folders from nothing.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "library/scan/ScanPipeline.h"
#include "library/scan/ScanText.h"
#include "library/volumes/VolumeResolving.h"

namespace velorin {

/// What is done around the reading of files. Called on the scanner's queue; blocks.
struct ScanHooks {
  using UpdateStatus = std::function<void(const std::string& text)>;
  using IsCancelled = std::function<bool()>;

  /// After each scan: covers for the albums that have none yet, see ArtworkCaching.h.
  std::function<void(const UpdateStatus&, const IsCancelled&)> cacheArtwork;
  /// After each scan and each round of changes, see ListeningKeeper.h.
  std::function<void(const IsCancelled&)> keepListening;
  /// Before a full rescan: the pictures of albums whose ids are given anew.
  std::function<void()> clearArtwork;
  /// The same for what shows them, on the main thread.
  std::function<void()> clearThumbnails;
};

/// One scan, made for it, on the scanner's queue. Each form returns the folders that were seen to
/// their end; they were marked as needing a full scan before, so that a scan that is cut short is
/// repeated. Failures of the database throw VelorinDatabaseError.
class ScanForms {
 public:
  /// All references outlive it.
  ScanForms(const ScanParts& parts, const ScanHooks& hooks, VolumeResolving& volumes,
            const ScanSettings& settings, ScanCallbacks callbacks,
            std::shared_ptr<ScanReport> report);

  /// mark: false for the folders of a volume that was just mounted.
  std::vector<std::string> scanFolders(const std::vector<std::string>& folders, bool mark);

  /// Only what changed is read. A folder that is offline is not touched.
  std::vector<std::string> rescan();

  /// Everything is read anew; what the listener did is kept. All or nothing: with one folder
  /// offline the library stays as it is.
  std::vector<std::string> fullRescan();

 private:
  PathTable loadExistingKeys() const;
  /// A volume may have gone while it was walked: what was not found then is not gone.
  void noteWhatWentAway(const std::vector<std::string>& folders, EnumeratedFolders& found) const;
  void finish() const;

  const ScanParts& _parts;
  const ScanHooks& _hooks;
  VolumeResolving& _volumes;
  const ScanSettings& _settings;
  const ScanCallbacks _callbacks;
  const std::shared_ptr<ScanReport> _report;
  ScanPipeline _pipeline;
  Stopwatch _watch;
};

}  // namespace velorin
