// Tracks whose files are gone leave the library; files that changed are made ready to be read anew.
#pragma once

#include <string>
#include <vector>

#include "library/scan/FolderEnumeration.h"
#include "library/scan/Listing.h"
#include "library/scan/ScanPipeline.h"

namespace velorin {

/// What is left to compare with.
struct CheckedLibrary {
  PathTable keys;  ///< of the library as it is after the check
  CueChanges cues;
};

/// The only place where tracks are deleted because a scan did not see their files, and so the place
/// that must not believe a bad listing. One thread at a time; blocks for the database.
class OrphanCheck {
 public:
  OrphanCheck(const ScanParts& parts, const ScanCallbacks& callbacks, ScanReport& report)
      : _parts(parts), _callbacks(callbacks), _report(report) {}

  /// Deletes the tracks below the folders that were enumerated whose files were not found, and
  /// those of files that have another size or time than the library knows.
  ///
  /// Nothing is deleted below a folder, or a part of one, that could not be seen: one that timed
  /// out, that denied permission, a link that leads nowhere. Nothing at all is deleted for a
  /// missing file when no file was found, or when more than nine tenths of a library of more than
  /// a hundred would go: then it is the listing that is wrong.
  ///
  /// Throws VelorinDatabaseError when the keys cannot be read; a deletion that fails is reported,
  /// and the next scan repeats it.
  CheckedLibrary checkForChanges(const EnumeratedFolders& found) const;

  /// True when so many of so many keys may go at once.
  static bool isPlausible(std::size_t orphans, std::size_t keys) noexcept {
    return orphans <= keys * 9 / 10 || keys < kGuardedFrom;
  }
  static constexpr std::size_t kGuardedFrom = 101;

 private:
  CueChanges cueChanges(const Listing& current, const PathTable& keys) const;
  void deleteFiles(const std::vector<std::string>& paths) const;

  const ScanParts& _parts;
  const ScanCallbacks& _callbacks;
  ScanReport& _report;
};

}  // namespace velorin
