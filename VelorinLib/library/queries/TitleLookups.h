// What something is called.
#pragma once

#include "library/DatabaseHandle.h"

namespace velorin {

/// Empty for an id that is not in the library. Any thread but the render thread; errors are thrown
/// as VelorinDatabaseError.
class TitleLookups {
 public:
  explicit TitleLookups(const DatabaseHandle& database) : _database(database) {}

  std::optional<std::string> trackTitle(std::int64_t id) const;
  std::optional<std::string> albumTitle(std::int64_t id) const;
  std::optional<std::string> artistName(std::int64_t id) const;
  std::optional<std::string> playlistName(std::int64_t id) const;

 private:
  std::optional<std::string> lookUp(const char* statement, std::int64_t id) const;

  const DatabaseHandle& _database;
};

}  // namespace velorin
