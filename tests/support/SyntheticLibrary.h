// A music library that nobody owns, of any size from a handful of tracks to a million.
//
// The same specification gives the same library every time. Made for tests that compare whole
// listings, and for benches that need a library of real proportions: few artists with many albums
// and many with one, words and genres as frequent as words are, several formats and scripts, tags
// that are missing.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "library/DatabaseHandle.h"
#include "records/ScannedItem.h"

namespace velorin::test {

struct SyntheticSpec {
  std::size_t tracks = 1000;
  std::uint64_t seed = 1;
  /// Files were modified, and music was heard, up to this moment.
  std::chrono::system_clock::time_point now =
      std::chrono::system_clock::time_point(std::chrono::seconds(1'735'689'600));
};

class SyntheticLibrary {
 public:
  explicit SyntheticLibrary(SyntheticSpec spec) : _spec(spec) {}

  using Use = std::function<void(const std::vector<ScannedItem>&)>;
  /// Makes all items, album by album, and hands them out in lists of `size`; the last one is
  /// shorter. Needs little memory, whatever the number of tracks.
  void forEachBatch(std::size_t size, const Use& use) const;

  /// The folders that hold the files.
  std::vector<std::string> musicFolders() const;

  /// Fills an empty, migrated library: the tracks through the import, then the music folders, guest
  /// artists on compilations, a history that agrees with the tracks' counters, 20 playlists and
  /// some pins. `progress` hears the number of tracks so far.
  void fill(const DatabaseHandle& database,
            const std::function<void(std::size_t)>& progress = {}) const;

 private:
  SyntheticSpec _spec;
};

}  // namespace velorin::test
