#include "library/queries/TitleLookups.h"

namespace velorin {

std::optional<std::string> TitleLookups::trackTitle(std::int64_t id) const {
  return lookUp("SELECT title FROM tracks WHERE id = ?", id);
}

std::optional<std::string> TitleLookups::albumTitle(std::int64_t id) const {
  return lookUp("SELECT title FROM albums WHERE id = ?", id);
}

std::optional<std::string> TitleLookups::artistName(std::int64_t id) const {
  return lookUp("SELECT name FROM artists WHERE id = ?", id);
}

std::optional<std::string> TitleLookups::playlistName(std::int64_t id) const {
  return lookUp("SELECT name FROM playlists WHERE id = ?", id);
}

std::optional<std::string> TitleLookups::lookUp(const char* statement, std::int64_t id) const {
  return _database.read(
      [&](sqlite::Reader& reader) { return reader.first<std::string>(statement, id); });
}

}  // namespace velorin
