// Scanned files become rows.
#pragma once

#include <vector>

#include "library/DatabaseHandle.h"
#include "records/ScannedItem.h"

namespace velorin {

class LibraryImport {
 public:
  explicit LibraryImport(const DatabaseHandle& database) : _database(database) {}

  /// Inserts the items in order in one transaction, with the artists and albums that are new, and
  /// keeps the full-text index and each album's worstFormat in step. Artists and albums are told
  /// apart without regard to the case of A to Z, as the tables do; the first spelling stays. An
  /// album that has a cover keeps it.
  ///
  /// What the listener did to a track, album or artist that had left the library, and that one of
  /// the new rows stands for, comes back with it: see listening/DepartedTracks.h, DepartedPins.h.
  ///
  /// All or nothing: a failure, such as a text with a NUL character or a full disk, throws
  /// VelorinDatabaseError and leaves the library as it was. Any thread; blocks.
  void insertBatch(const std::vector<ScannedItem>& items);

 private:
  const DatabaseHandle& _database;
};

/// How good a format is, for an album's worstFormat: "DSD" 3, lossless 2, any other 1. Compared
/// without regard to case. No format ranks above all of them.
int formatRank(const std::optional<std::string>& format);

}  // namespace velorin
