// What the library holds already, for a scan to compare with what it finds.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "library/DatabaseHandle.h"
#include "library/queries/PathTable.h"

namespace velorin {

/// What a track of the library is known by: the path of a whole file; for a CUE track the path,
/// "|" and the seconds at which it starts, in the shortest decimal form that reads back as the same
/// number and with a point in any case: "/m/a.flac|0.0", "/m/a.flac|183.5". Pure, any thread.
std::string libraryKey(std::string_view path, std::optional<double> cueStartTime);

/// Any thread but the render thread; failures throw VelorinDatabaseError.
class LibraryInventory {
 public:
  explicit LibraryInventory(const DatabaseHandle& database) : _database(database) {}

  /// The keys of all tracks, each with the id of a track that has it.
  PathTable existingKeys() const;

  /// The files with a known size of 1 byte or more, each with that size.
  PathTable existingFileSizes() const;

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
