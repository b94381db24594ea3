#include "library/queries/LibraryImport.h"

#include <limits>
#include <unordered_map>
#include <unordered_set>

#include "foundation/Text.h"
#include "library/listening/DepartedPins.h"
#include "library/listening/DepartedTracks.h"
#include "library/rows/TrackRow.h"

namespace velorin {
namespace {

std::string albumKey(std::int64_t artistId, std::string_view title) {
  return std::to_string(artistId) + "|" + text::lowercaseASCII(title);
}

/// The artists and albums of one batch: read in bulk, then added to as items need new ones.
class BatchParents {
 public:
  BatchParents(sqlite::Writer& writer, const std::vector<ScannedItem>& items)
      : _writer(writer), _pins(writer) {
    readArtists(items);
    readAlbums(items);
  }

  const Artist& artist(const std::string& name) {
    const auto [entry, isNew] = _artists.try_emplace(text::lowercaseASCII(name));
    if (isNew) {
      entry->second.name = name;
      entry->second.id = rows::insert(_writer, entry->second);
      _pins.artistMade(*entry->second.id, name);
    }
    return entry->second;
  }

  Album& album(const ScannedItem& item, const Artist& artist) {
    const auto [entry, isNew] = _albums.try_emplace(albumKey(*artist.id, item.albumTitle));
    if (isNew) {
      Album& album = entry->second;
      album.title = item.albumTitle;
      album.artistId = *artist.id;
      album.year = item.year;
      album.genre = item.albumGenre;
      album.id = rows::insert(_writer, album);
      _pins.albumMade(*album.id, artist.name, album.title);
    }
    return entry->second;
  }

 private:
  void readArtists(const std::vector<ScannedItem>& items) {
    std::unordered_set<std::string_view> distinct;
    for (const ScannedItem& item : items) distinct.insert(item.artistName);
    const std::vector<std::string_view> names(distinct.begin(), distinct.end());
    sqlite::forEachSlice(names, [&](std::span<const std::string_view> slice) {
      _writer.each(
          "SELECT " + rows::kArtistColumns + " FROM artists WHERE name IN (" +
              sqlite::placeholders(slice.size()) + ")",
          [&](const sqlite::Row& row) {
            Artist artist;
            sqlite::RowReader reader(row);
            reader >> artist;
            _artists.emplace(text::lowercaseASCII(artist.name), std::move(artist));
          },
          slice);
    });
  }

  // By title through the index; which of them belong to the batch's artists is told by the key. To
  // ask for both in SQL would probe every pair of an artist and a title.
  void readAlbums(const std::vector<ScannedItem>& items) {
    if (_artists.empty()) return;
    std::unordered_set<std::string_view> distinct;
    for (const ScannedItem& item : items) distinct.insert(item.albumTitle);
    std::unordered_set<std::int64_t> artistIds;
    for (const auto& [name, artist] : _artists) artistIds.insert(*artist.id);
    const std::vector<std::string_view> titles(distinct.begin(), distinct.end());
    sqlite::forEachSlice(titles, [&](std::span<const std::string_view> slice) {
      _writer.each(
          "SELECT " + rows::kAlbumColumns + " FROM albums WHERE title IN (" +
              sqlite::placeholders(slice.size()) + ")",
          [&](const sqlite::Row& row) {
            Album album;
            sqlite::RowReader reader(row);
            reader >> album;
            if (!artistIds.contains(album.artistId)) return;
            _albums.emplace(albumKey(album.artistId, album.title), std::move(album));
          },
          slice);
    });
  }

  sqlite::Writer& _writer;
  ReturningPins _pins;
  std::unordered_map<std::string, Artist> _artists;  // by lower-case name
  std::unordered_map<std::string, Album> _albums;    // by albumKey
};

void insertItem(sqlite::Writer& writer, BatchParents& parents, ReturningTracks& returning,
                const ScannedItem& item) {
  const Artist& artist = parents.artist(item.artistName);
  Album& album = parents.album(item, artist);
  if (!album.artworkPath && item.artworkPath) {
    writer.run("UPDATE albums SET artworkPath = ? WHERE id = ?", item.artworkPath, album.id);
    album.artworkPath = item.artworkPath;
  }

  Track track = item.track;
  track.albumId = *album.id;
  track.artistId = *artist.id;
  track.year = item.year ? item.year : album.year;
  const std::int64_t id = rows::insert(writer, track);
  writer.run("INSERT INTO tracks_fts(rowid, title, artistName, albumTitle) VALUES (?, ?, ?, ?)", id,
             track.title, item.artistName, item.albumTitle);
  returning.arrived(id, track);

  if (track.format && formatRank(track.format) < formatRank(album.worstFormat)) {
    writer.run("UPDATE albums SET worstFormat = ? WHERE id = ?", track.format, album.id);
    album.worstFormat = track.format;
  }
}

}  // namespace

int formatRank(const std::optional<std::string>& format) {
  if (!format) return std::numeric_limits<int>::max();
  const std::string name = text::lowercaseASCII(*format);
  if (name == "dsd") return 3;
  return name == "flac" || name == "alac" || name == "aiff" || name == "wav" ? 2 : 1;
}

void LibraryImport::insertBatch(const std::vector<ScannedItem>& items) {
  _database.write([&](sqlite::Writer& writer) {
    BatchParents parents(writer, items);
    ReturningTracks returning(writer);
    for (const ScannedItem& item : items) insertItem(writer, parents, returning, item);
    returning.settle();
  });
}

}  // namespace velorin
