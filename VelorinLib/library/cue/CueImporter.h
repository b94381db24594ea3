// A CUE sheet found by a scan becomes the tracks of its audio file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "library/DatabaseHandle.h"
#include "records/ScannedItem.h"

namespace velorin {

class ScanState;

/// A sheet that names several files tells nothing that the files do not: it is passed over, and
/// what a version of it for one file has left in the library goes.
class CueImporter {
 public:
  explicit CueImporter(const DatabaseHandle& database) : _database(database) {}

  struct Outcome {
    std::vector<ScannedItem> items;
    /// The file that the sheet claims as its own; it is no track by itself.
    std::optional<std::string> audioPath;
    /// Why a sheet could not be used, in one line without its path.
    std::optional<std::string> failure;
    /// To be noted: the time of the sheet, and the files of a sheet of several.
    std::optional<double> processedAt;
    std::vector<std::string> filesOfTheirOwn;
    bool isUnchanged = false;   ///< it gave its tracks when it was read last, if it gave any
    bool isUnreadable = false;  ///< nobody knows what it says
  };

  /// Reads a sheet and its audio file, and notes what it found. A sheet that did not change since
  /// it was last read gives no items but its audio file; one that cannot be used is noted as read,
  /// so that it is not tried again until it changes.
  ///
  /// The audio file may lie elsewhere than beside the sheet, but only inside the music folders: no
  /// sheet brings files into the library that nobody added.
  ///
  /// Any number of threads; blocks for the disk and the database, whose failures throw
  /// VelorinDatabaseError.
  Outcome processCue(const std::string& sheetPath, ScanState& state) const;

  /// The two halves of processCue(): the reading, without the database, and the noting.
  static Outcome read(const std::string& sheetPath, ScanState& state);
  void note(const std::string& sheetPath, const Outcome& outcome) const;

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
