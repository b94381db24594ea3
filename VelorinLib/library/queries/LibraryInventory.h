// What the library holds already, for a scan to compare with what it finds.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

  /// Takes a file's path, valid during the call, and its stamp, see FileStamp.h.
  using UseStamp = std::function<void(std::string_view path, std::int64_t stamp)>;

  /// Tells the stamps of all tracks whose file's size is known, a file with several tracks once
  /// for each. Needs no memory, however many there are. `use` must not call the library.
  void existingFileStamps(const UseStamp& use) const;
  /// The same for the tracks of these files.
  void existingFileStamps(const std::vector<std::string>& paths, const UseStamp& use) const;

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
