// Pins of albums and artists whose rows go and are made again under another id.
//
// The pin itself stays where it is among the pins. Kept are the names of what it stood for, which
// is how its successor is known. Used inside a write; failures throw VelorinDatabaseError.
#pragma once

#include <string_view>

#include "library/sqlite/Connection.h"

namespace velorin {

/// Before the row is deleted; nothing happens when it is not pinned.
void parkAlbumPin(sqlite::Writer& writer, std::int64_t albumId);
void parkArtistPin(sqlite::Writer& writer, std::int64_t artistId);
/// Those of all albums and artists.
void parkAllPins(sqlite::Writer& writer);

/// Gives new albums and artists the pins of those that had their names, without regard to the case
/// of A to Z. For one transaction; costs nothing while no name is kept.
class ReturningPins {
 public:
  explicit ReturningPins(sqlite::Writer& writer);

  void artistMade(std::int64_t id, std::string_view name) { made("artist", id, name, ""); }
  void albumMade(std::int64_t id, std::string_view artistName, std::string_view title) {
    made("album", id, artistName, title);
  }

 private:
  void made(std::string_view type, std::int64_t id, std::string_view artistName,
            std::string_view albumTitle);

  sqlite::Writer& _writer;
  bool _anyParked;
};

}  // namespace velorin
