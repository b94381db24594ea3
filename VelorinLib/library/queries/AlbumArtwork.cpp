#include "library/queries/AlbumArtwork.h"

namespace velorin {
namespace {

using sqlite::Reader;
using sqlite::Writer;

// Two searches, each over at the first row that fits, because the index on albumId holds the ids in
// order. To sort an album's tracks by what their formats can carry would read them all.
constexpr const char* kCoverSources = R"(
SELECT id, COALESCE(
    (SELECT filePath FROM tracks
     WHERE albumId = albums.id
       AND (lower(substr(filePath, -4)) IN ('.m4a', '.mp3', '.caf', '.aif', '.wav')
            OR lower(substr(filePath, -5)) IN ('.flac', '.aiff', '.opus'))
     ORDER BY id LIMIT 1),
    (SELECT filePath FROM tracks WHERE albumId = albums.id ORDER BY id LIMIT 1)) AS trackPath
FROM albums
WHERE artworkPath IS NULL AND trackPath IS NOT NULL
ORDER BY id)";

/// The first value, where a NULL counts as none.
template <class... Arguments>
std::optional<std::string> firstText(Reader& reader, const char* sql, const Arguments&... values) {
  return reader.first<std::optional<std::string>>(sql, values...).value_or(std::nullopt);
}

}  // namespace

std::optional<std::string> AlbumArtwork::albumArtworkPath(std::int64_t albumId) const {
  return _database.read([&](Reader& reader) {
    return firstText(reader, "SELECT artworkPath FROM albums WHERE id = ?", albumId);
  });
}

std::vector<AlbumArtwork::Cover> AlbumArtwork::albumsWithArtwork() const {
  return _database.read([](Reader& reader) {
    std::vector<Cover> covers;
    reader.each("SELECT id, artworkPath FROM albums WHERE artworkPath IS NOT NULL ORDER BY id",
                [&](const sqlite::Row& row) {
                  covers.push_back({row.get<std::int64_t>(0), row.get<std::string>(1)});
                });
    return covers;
  });
}

std::vector<AlbumArtwork::CoverSource> AlbumArtwork::albumsMissingArtwork() const {
  return _database.read([](Reader& reader) {
    std::vector<CoverSource> sources;
    reader.each(kCoverSources, [&](const sqlite::Row& row) {
      sources.push_back({row.get<std::int64_t>(0), row.get<std::string>(1)});
    });
    return sources;
  });
}

void AlbumArtwork::updateAlbumArtwork(std::int64_t albumId,
                                      const std::optional<std::string>& path) const {
  _database.write([&](Writer& writer) {
    writer.run("UPDATE albums SET artworkPath = ? WHERE id = ?", path, albumId);
  });
}

std::optional<std::string> AlbumArtwork::albumAccentColor(std::int64_t albumId) const {
  return _database.read([&](Reader& reader) {
    return firstText(reader, "SELECT accentColorHex FROM albums WHERE id = ?", albumId);
  });
}

void AlbumArtwork::setAlbumAccentColor(std::int64_t albumId,
                                       const std::optional<std::string>& hex) const {
  _database.write([&](Writer& writer) {
    writer.run("UPDATE albums SET accentColorHex = ? WHERE id = ?", hex, albumId);
  });
}

}  // namespace velorin
