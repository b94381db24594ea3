// The library's playlists, plain and smart alike, for commands.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "library/DatabaseHandle.h"
#include "records/Playlist.h"
#include "records/TrackInfo.h"

namespace velorin {

/// Main thread. Failures throw VelorinDatabaseError.
class StoredPlaylists {
 public:
  explicit StoredPlaylists(std::shared_ptr<ConnectionQueue> library);

  /// By name.
  std::vector<Playlist> all() const;
  /// The one with this name, whatever the case of A to Z. Throws where there is none.
  Playlist named(const std::string& name) const;
  /// What it holds now. Throws for a smart playlist whose rules cannot be read.
  std::vector<TrackInfo> tracksOf(const Playlist& playlist) const;
  /// How many tracks that is; nothing for a smart playlist whose rules cannot be read.
  std::optional<std::int64_t> countOf(const Playlist& playlist) const;
  void remove(const Playlist& playlist);

 private:
  DatabaseHandle _database;
  std::set<std::int64_t> _favouriteIds;
};

}  // namespace velorin
