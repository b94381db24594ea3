// What a smart playlist holds at this moment.
#pragma once

#include <cstdint>
#include <set>
#include <vector>

#include "library/DatabaseHandle.h"
#include "records/SmartPlaylistRules.h"
#include "records/TrackInfo.h"

namespace velorin {

/// Any thread but the render thread; errors are thrown as VelorinDatabaseError. favouriteIds: the
/// tracks that `isFavourite` speaks of, which the database does not know.
class SmartPlaylists {
 public:
  explicit SmartPlaylists(const DatabaseHandle& database) : _database(database) {}

  /// The tracks that the rules choose, in the order of the rules. A random order is a new one each
  /// time.
  std::vector<TrackInfo> fetchSmartPlaylistTracks(const SmartPlaylistRules& rules,
                                                  const std::set<std::int64_t>& favouriteIds) const;

  /// The same as ids, for long lists that are shown a page at a time.
  std::vector<std::int64_t> fetchSmartPlaylistTrackIds(
      const SmartPlaylistRules& rules, const std::set<std::int64_t>& favouriteIds) const;

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
