// The music of a storm: short tracks of every kind, of which each sounds like no other.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "library/DatabaseManager.h"
#include "library/TestLibrary.h"
#include "records/TrackInfo.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {

class StormLibrary {
 public:
  StormLibrary();

  TestLibrary library;
  std::shared_ptr<DatabaseManager> database;

  /// Of the library: plain files, CUE tracks of one file, and files that cannot be played.
  std::vector<TrackInfo> tracks;
  /// Files outside of it.
  std::vector<std::filesystem::path> externals;
  /// Makes a file outside of the library vanish or come back.
  void toggle(const std::filesystem::path& external) const;

  /// Names an item by what makes it itself.
  static std::string keyOf(const Track& track);
  /// The track that sounds like this; empty when none does.
  std::string keyOfAngle(double angle) const;
  /// The row of the library; empty for an external track.
  std::string keyOfId(std::int64_t id) const;

 private:
  TemporaryFolder _folder;
  std::map<std::string, double> _angles;
};

}  // namespace velorin::test
