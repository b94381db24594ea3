// Tracks that come back to the playlists that they left.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "library/sqlite/Connection.h"

namespace velorin {

/// Collects places and takes them all at once, each playlist in one pass. Used inside a write.
class PlaylistPlaces {
 public:
  /// Where a track stood.
  struct Place {
    std::int64_t position = 0;
    std::int64_t trackId = 0;  ///< the row that stands for it now
    std::string createdAt;     ///< when it was added to the playlist, in the library's text form
  };

  explicit PlaylistPlaces(sqlite::Writer& writer) : _writer(writer) {}

  void add(std::int64_t playlistId, Place place) {
    _places[playlistId].push_back(std::move(place));
  }

  /// Puts each track at its old position where that is free. Where it is taken the track goes
  /// there, and what stands behind moves up as far as it must. A track that the playlist holds
  /// already stays where it is.
  void settle();

 private:
  void settle(std::int64_t playlistId, std::vector<Place>& places);

  sqlite::Writer& _writer;
  std::map<std::int64_t, std::vector<Place>> _places;  // by playlist
};

}  // namespace velorin
