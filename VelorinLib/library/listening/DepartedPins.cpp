#include "library/listening/DepartedPins.h"

namespace velorin {
namespace {

using sqlite::Writer;

constexpr const char* kParkAlbums = R"(
INSERT OR REPLACE INTO departedPins (type, referenceId, artistName, albumTitle)
SELECT pin.type, pin.referenceId, artists.name, albums.title
FROM pinnedItems AS pin
JOIN albums ON albums.id = CAST(pin.referenceId AS INTEGER)
JOIN artists ON artists.id = albums.artistId
WHERE pin.type = 'album' AND {})";

constexpr const char* kParkArtists = R"(
INSERT OR REPLACE INTO departedPins (type, referenceId, artistName, albumTitle)
SELECT pin.type, pin.referenceId, artists.name, ''
FROM pinnedItems AS pin
JOIN artists ON artists.id = CAST(pin.referenceId AS INTEGER)
WHERE pin.type = 'artist' AND {})";

void parkOne(Writer& writer, const char* statement, std::int64_t id) {
  writer.run(fmt::format(fmt::runtime(statement), "pin.referenceId = CAST(? AS TEXT)"), id);
}

}  // namespace

void parkAlbumPin(Writer& writer, std::int64_t albumId) {
  parkOne(writer, kParkAlbums, albumId);
}

void parkArtistPin(Writer& writer, std::int64_t artistId) {
  parkOne(writer, kParkArtists, artistId);
}

void parkAllPins(Writer& writer) {
  for (const char* statement : {kParkAlbums, kParkArtists}) {
    writer.run(fmt::format(fmt::runtime(statement), "TRUE"));
  }
}

ReturningPins::ReturningPins(Writer& writer)
    : _writer(writer),
      _anyParked(writer.first<int>("SELECT 1 FROM departedPins LIMIT 1").has_value()) {}

void ReturningPins::made(std::string_view type, std::int64_t id, std::string_view artistName,
                         std::string_view albumTitle) {
  if (!_anyParked) return;
  const auto parked = _writer.column<std::string>(R"(
SELECT referenceId FROM departedPins WHERE type = ? AND artistName = ? AND albumTitle = ?)",
                                                  type, artistName, albumTitle);
  for (const std::string& referenceId : parked) {
    _writer.run(R"(
UPDATE OR REPLACE pinnedItems SET referenceId = CAST(? AS TEXT)
WHERE type = ? AND referenceId = ?)",
                id, type, referenceId);
    _writer.run("DELETE FROM departedPins WHERE type = ? AND referenceId = ?", type, referenceId);
  }
}

}  // namespace velorin
