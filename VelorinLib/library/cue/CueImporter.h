// A CUE sheet found by a scan becomes the tracks of its audio file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "library/DatabaseHandle.h"
#include "records/ScannedItem.h"

namespace velorin {

class ScanState;

class CueImporter {
 public:
  explicit CueImporter(const DatabaseHandle& database) : _database(database) {}

  struct Outcome {
    std::vector<ScannedItem> items;
    /// The file that the sheet claims as its own; it is no track by itself.
    std::optional<std::string> audioPath;
    /// Why a sheet could not be used, in one line without its path.
    std::optional<std::string> failure;
  };

  /// Reads a sheet and its audio file. A sheet that did not change since it was last read gives no
  /// items but its audio file; one that cannot be used is noted as read, so that it is not tried
  /// again until it changes. Any number of threads; blocks for the disk and the database.
  Outcome processCue(const std::string& sheetPath, ScanState& state) const;

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
