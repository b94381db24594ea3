#include "library/queries/Playlists.h"

#include <algorithm>
#include <map>

#include "foundation/Text.h"
#include "library/queries/PlaylistPositions.h"
#include "library/rows/PlaylistRow.h"
#include "library/rows/TrackInfos.h"

namespace velorin {
namespace {

using Code = PlaylistError::Code;

constexpr std::size_t kCoverTracks = 4;

const char* textOf(Code code) {
  switch (code) {
    case Code::emptyName:
      return "Playlist name is empty";
    case Code::databaseUnavailable:
      return kDatabaseUnavailable;
    case Code::createdNotLoaded:
      return "Failed to load created playlist";
    case Code::nameTaken:
      return "A playlist with this name exists";
    case Code::nameOfDeleted:
      return "A deleted playlist had this name and keeps it: choose another name";
    case Code::unknownPlaylist:
      return "The playlist does not exist any more";
  }
  return "";
}

const std::string kPlaylists = "SELECT " + rows::kPlaylistColumns + "\nFROM playlists\n";

template <class... Arguments>
std::vector<Playlist> playlists(sqlite::Reader& reader, std::string_view tail,
                                const Arguments&... arguments) {
  std::vector<Playlist> found;
  reader.each(
      kPlaylists + std::string(tail),
      [&](const sqlite::Row& row) {
        sqlite::RowReader columns(row);
        columns >> found.emplace_back();
      },
      arguments...);
  return found;
}

std::string_view checkedName(std::string_view name) {
  const std::string_view trimmed = text::trimWhitespaceAndNewlines(name);
  if (trimmed.empty()) throw PlaylistError(Code::emptyName);
  return trimmed;
}

/// Throws when another playlist than `self` has the name.
void requireFree(sqlite::Reader& reader, std::string_view name, std::int64_t self = 0) {
  const auto isHidden =
      reader.first<bool>("SELECT isHidden FROM playlists WHERE name = ? AND id != ?", name, self);
  if (isHidden) throw PlaylistError(*isHidden ? Code::nameOfDeleted : Code::nameTaken);
}

void touch(sqlite::Writer& writer, std::int64_t id, sqlite::TimePoint now) {
  if (writer.run("UPDATE playlists SET updatedAt = ? WHERE id = ?", now, id) == 0) {
    throw PlaylistError(Code::unknownPlaylist);
  }
}

}  // namespace

PlaylistError::PlaylistError(Code c) : VelorinDatabaseError(textOf(c)), code(c) {}

template <class Closure>
auto Playlists::write(Closure&& closure) {
  const auto queue = _database.dbQueue();
  if (!queue) throw PlaylistError(Code::databaseUnavailable);
  return queue->write(std::forward<Closure>(closure));
}

Playlist Playlists::create(std::string_view name, std::optional<std::string_view> rulesJSON,
                           TimePoint now) {
  const std::string_view trimmed = checkedName(name);
  return write([&](sqlite::Writer& writer) {
    requireFree(writer, trimmed);
    writer.run(R"(
INSERT INTO playlists (name, isSmartPlaylist, rulesJSON, createdAt, updatedAt)
VALUES (?, ?, ?, ?, ?))",
               trimmed, rulesJSON.has_value(), rulesJSON, now, now);
    auto created = playlists(writer, "WHERE playlists.id = ?", writer.lastInsertedId());
    if (created.empty()) throw PlaylistError(Code::createdNotLoaded);
    return std::move(created.front());
  });
}

Playlist Playlists::createPlaylist(std::string_view name, TimePoint now) {
  return create(name, std::nullopt, now);
}

Playlist Playlists::createSmartPlaylist(std::string_view name, std::string_view rulesJSON,
                                        TimePoint now) {
  return create(name, rulesJSON, now);
}

void Playlists::updateSmartPlaylist(std::int64_t id, std::string_view rulesJSON, TimePoint now) {
  write([&](sqlite::Writer& writer) {
    touch(writer, id, now);
    writer.run("UPDATE playlists SET rulesJSON = ? WHERE id = ?", rulesJSON, id);
  });
}

void Playlists::renamePlaylist(std::int64_t id, std::string_view name, TimePoint now) {
  const std::string_view trimmed = checkedName(name);
  write([&](sqlite::Writer& writer) {
    touch(writer, id, now);
    requireFree(writer, trimmed, id);
    writer.run("UPDATE playlists SET name = ? WHERE id = ?", trimmed, id);
  });
}

void Playlists::deletePlaylist(std::int64_t id) {
  write([&](sqlite::Writer& writer) {
    writer.run("UPDATE playlists SET isHidden = 1 WHERE id = ?", id);
  });
}

std::vector<Playlist> Playlists::fetchPlaylists(std::int64_t limit, std::int64_t offset) const {
  return _database.read([&](sqlite::Reader& reader) {
    return playlists(reader, "WHERE isHidden = 0\nORDER BY playlists.name\nLIMIT ? OFFSET ?", limit,
                     offset);
  });
}

void Playlists::addTracks(std::int64_t playlistId, const std::vector<std::int64_t>& ids,
                          TimePoint now) {
  write([&](sqlite::Writer& writer) {
    touch(writer, playlistId, now);
    std::int64_t position =
        *writer.first<std::int64_t>(
            "SELECT COALESCE(MAX(position), -1) FROM playlist_tracks WHERE playlistId = ?",
            playlistId) +
        1;
    for (const std::int64_t id : ids) {
      position += writer.run(R"(
INSERT OR IGNORE INTO playlist_tracks (playlistId, trackId, position, createdAt)
SELECT ?, id, ?, ? FROM tracks WHERE id = ?)",
                             playlistId, position, now, id);
    }
  });
}

void Playlists::removeTrack(std::int64_t playlistId, std::int64_t trackId, TimePoint now) {
  write([&](sqlite::Writer& writer) {
    const auto position = writer.first<std::int64_t>(
        "SELECT position FROM playlist_tracks WHERE playlistId = ? AND trackId = ?", playlistId,
        trackId);
    if (!position) return;
    writer.run("DELETE FROM playlist_tracks WHERE playlistId = ? AND trackId = ?", playlistId,
               trackId);
    const auto behind = playlistEntries(writer, playlistId, *position);
    renumber(writer, playlistId, behind, *position);
    touch(writer, playlistId, now);
  });
}

void Playlists::reorderTracks(std::int64_t playlistId, const std::vector<std::int64_t>& ids,
                              TimePoint now) {
  write([&](sqlite::Writer& writer) {
    const auto present = playlistEntries(writer, playlistId);
    if (present.empty()) return;
    std::unordered_map<std::int64_t, const PlaylistEntry*> unnamed;
    for (const PlaylistEntry& entry : present) unnamed.emplace(entry.trackId, &entry);
    std::vector<PlaylistEntry> ordered;
    ordered.reserve(present.size());
    for (const std::int64_t id : ids) {
      if (const auto entry = unnamed.extract(id)) ordered.push_back(*entry.mapped());
    }
    for (const PlaylistEntry& entry : present) {
      if (unnamed.contains(entry.trackId)) ordered.push_back(entry);
    }
    renumber(writer, playlistId, ordered, 0);
    touch(writer, playlistId, now);
  });
}

std::vector<TrackInfo> Playlists::fetchPlaylistTracks(std::int64_t id, std::int64_t limit,
                                                      std::int64_t offset) const {
  return _database.read([&](sqlite::Reader& reader) {
    return rows::trackInfosInOrder(reader, reader.column<std::int64_t>(R"(
SELECT trackId
FROM playlist_tracks
WHERE playlistId = ?
ORDER BY position
LIMIT ? OFFSET ?)",
                                                                       id, limit, offset));
  });
}

std::int64_t Playlists::countPlaylistTracks(std::int64_t id) const {
  return _database.read([&](sqlite::Reader& reader) {
    return reader
        .first<std::int64_t>("SELECT COUNT(*) FROM playlist_tracks WHERE playlistId = ?", id)
        .value_or(0);
  });
}

std::vector<std::int64_t> Playlists::fetchPlaylistCover(
    const std::vector<std::int64_t>& ids) const {
  return _database.read([&](sqlite::Reader& reader) {
    // By "has no cover" and album: an album may come up in several slices.
    std::map<std::pair<bool, std::int64_t>, std::int64_t> albums;
    sqlite::forEachSlice(ids, [&](std::span<const std::int64_t> slice) {
      reader.each(
          fmt::format(R"(
SELECT albums.artworkPath IS NULL, albums.id, MIN(tracks.id)
FROM tracks
JOIN albums ON albums.id = tracks.albumId
WHERE tracks.id IN ({})
GROUP BY albums.id)",
                      sqlite::placeholders(slice.size())),
          [&](const sqlite::Row& row) {
            const auto first = row.get<std::int64_t>(2);
            const auto [at, isNew] =
                albums.try_emplace({row.get<bool>(0), row.get<std::int64_t>(1)}, first);
            if (!isNew) at->second = std::min(at->second, first);
          },
          slice);
    });
    std::vector<std::int64_t> cover;
    for (const auto& [album, track] : albums) {
      if (cover.size() == kCoverTracks) break;
      cover.push_back(track);
    }
    return cover;
  });
}

std::unordered_map<std::int64_t, std::int64_t> Playlists::fetchFirstAlbums(
    const std::vector<std::int64_t>& playlistIds) const {
  return _database.read([&](sqlite::Reader& reader) {
    std::unordered_map<std::int64_t, std::int64_t> albums;
    sqlite::forEachSlice(playlistIds, [&](std::span<const std::int64_t> slice) {
      reader.each(
          fmt::format(R"(
SELECT pt.playlistId, t.albumId
FROM playlist_tracks pt
JOIN tracks t ON t.id = pt.trackId
WHERE pt.playlistId IN ({})
  AND pt.position = (SELECT MIN(position) FROM playlist_tracks WHERE playlistId = pt.playlistId)
GROUP BY pt.playlistId)",
                      sqlite::placeholders(slice.size())),
          [&](const sqlite::Row& row) {
            albums.emplace(row.get<std::int64_t>(0), row.get<std::int64_t>(1));
          },
          slice);
    });
    return albums;
  });
}

}  // namespace velorin
