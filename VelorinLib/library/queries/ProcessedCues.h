// Which CUE sheets were read, so that a scan passes over those that did not change since.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "library/DatabaseHandle.h"

namespace velorin {

/// Times are the sheet's modification time in seconds since 1970. Any thread but the render
/// thread; failures throw VelorinDatabaseError.
class ProcessedCues {
 public:
  explicit ProcessedCues(const DatabaseHandle& database) : _database(database) {}

  /// Path of each sheet and the time it had when it was read.
  std::unordered_map<std::string, double> fetchProcessedCues() const;
  void markCueProcessed(const std::string& path, double lastModified) const;
  void clearProcessedCues() const;
  /// These sheets are gone.
  void forget(const std::vector<std::string>& paths) const;

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
