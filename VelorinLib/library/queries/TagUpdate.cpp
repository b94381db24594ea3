#include "library/queries/TagUpdate.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <filesystem>

#include "foundation/Text.h"
#include "library/listening/DepartedPins.h"
#include "library/metadata/TagText.h"
#include "library/rows/TrackInfos.h"

namespace velorin {
namespace {

using sqlite::Writer;

/// What a text of an edit is as a value of the library.
std::string clean(const std::string& value) {
  std::string text = text::toValidUTF8(value);
  std::erase(text, '\0');
  return text;
}

std::string orElse(const std::string& value, const std::string& unknown) {
  std::string text = clean(value);
  return text::trimWhitespaceAndNewlines(text).empty() ? unknown : text;
}

/// The pieces of one UPDATE and what is bound to them.
class Pieces {
 public:
  void set(const char* column, sqlite::Value value) {
    _pieces.push_back(fmt::format("{} = ?", column));
    _values.push_back(std::move(value));
  }
  void setText(const char* column, const std::optional<std::string>& value) {
    if (!value) return;
    std::string text = clean(*value);
    if (text.empty()) {
      set(column, nullptr);
    } else {
      set(column, std::move(text));
    }
  }
  void setNumber(const char* column, int edit) {
    if (edit < 0) set(column, nullptr);
    if (edit > 0) set(column, std::int64_t{edit});
  }
  void run(Writer& writer, std::int64_t trackId) {
    if (_pieces.empty()) return;
    writer.run(fmt::format("UPDATE tracks SET {} WHERE id = ?", fmt::join(_pieces, ", ")), _values,
               trackId);
  }

 private:
  std::vector<std::string> _pieces;
  sqlite::Values _values;
};

std::int64_t artistNamed(Writer& writer, const std::string& name) {
  if (auto id = writer.first<std::int64_t>("SELECT id FROM artists WHERE name = ?", name)) {
    return *id;
  }
  writer.run("INSERT INTO artists (name) VALUES (?)", name);
  const std::int64_t id = writer.lastInsertedId();
  if (id == 0) throw VelorinDatabaseError("Artist has no id after insert");
  ReturningPins(writer).artistMade(id, name);
  return id;
}

std::int64_t albumCalled(Writer& writer, const std::string& title, std::int64_t artistId,
                         const std::string& artistName, std::int64_t oldAlbum) {
  if (auto id = writer.first<std::int64_t>("SELECT id FROM albums WHERE title = ? AND artistId = ?",
                                           title, artistId)) {
    return *id;
  }
  writer.run(
      "INSERT INTO albums (title, artistId, year, genre, artworkPath, accentColorHex) "
      "SELECT ?, ?, year, genre, artworkPath, accentColorHex FROM albums WHERE id = ?",
      title, artistId, oldAlbum);
  const std::int64_t id = writer.lastInsertedId();
  if (id == 0) throw VelorinDatabaseError("Album has no id after insert");
  ReturningPins(writer).albumMade(id, artistName, title);
  return id;
}

void renewSearchEntry(Writer& writer, std::int64_t trackId, const std::string& title,
                      std::int64_t artistId, std::int64_t albumId) {
  const auto artist = writer.first<std::string>("SELECT name FROM artists WHERE id = ?", artistId);
  const auto album = writer.first<std::string>("SELECT title FROM albums WHERE id = ?", albumId);
  writer.run("DELETE FROM tracks_fts WHERE rowid = ?", trackId);
  writer.run("INSERT INTO tracks_fts(rowid, title, artistName, albumTitle) VALUES (?, ?, ?, ?)",
             trackId, title, artist.value_or(""), album.value_or(""));
}

void setStamp(Writer& writer, const std::string& path, const FileStamp& stamp) {
  // The sound is the one it was: where it was known it stays so.
  writer.run(R"(
UPDATE trackSounds SET fileSize = ?, lastModified = ?
FROM tracks AS t
WHERE t.filePath = ? AND t.id = trackSounds.trackId AND t.fileSize IS trackSounds.fileSize
  AND t.lastModified IS trackSounds.lastModified)",
             stamp.size, stamp.lastModified, path);
  writer.run("UPDATE tracks SET fileSize = ?, lastModified = ? WHERE filePath = ?", stamp.size,
             stamp.lastModified, path);
}

Bereaved applyTo(Writer& writer, const TrackInfo& old, const TagChanges& changes) {
  const Track& track = old.track;
  const std::int64_t id = *track.id;
  Bereaved moved;
  Pieces pieces;

  std::string title = track.title;
  if (changes.title) {
    const std::string stem = std::filesystem::path(track.filePath).stem().native();
    title = orElse(*changes.title, text::toValidUTF8(stem));
    pieces.set("title", title);
  }
  pieces.setNumber("trackNumber", numberEdit(changes.trackNumber, changes.clearTrackNumber));
  pieces.setNumber("discNumber", numberEdit(changes.discNumber, changes.clearDiscNumber));
  pieces.setText("genre", changes.genre);
  pieces.setText("composer", changes.composer);
  pieces.setText("conductor", changes.conductor);
  pieces.setText("comment", changes.comment);
  pieces.setText("lyrics", changes.lyrics);

  std::int64_t artistId = track.artistId;
  std::string artistName = old.artist.name;
  if (changes.artistName) artistName = orElse(*changes.artistName, kUnknownArtist);
  if (artistName != old.artist.name) artistId = artistNamed(writer, artistName);
  if (artistId != track.artistId) {
    pieces.set("artistId", artistId);
    moved.artists = {artistId, track.artistId};
  }

  std::int64_t albumId = track.albumId;
  std::string albumTitle = old.album.title;
  if (changes.albumTitle) albumTitle = orElse(*changes.albumTitle, kUnknownAlbum);
  if (albumTitle != old.album.title || artistId != track.artistId) {
    albumId = albumCalled(writer, albumTitle, artistId, artistName, track.albumId);
  }
  if (albumId != track.albumId) {
    pieces.set("albumId", albumId);
    moved.albums = {albumId, track.albumId};
    moved.artists.insert(old.album.artistId);
  }

  const int year = numberEdit(changes.year, changes.clearYear);
  pieces.setNumber("year", year);
  pieces.run(writer, id);
  if (year > 0) writer.run("UPDATE albums SET year = ? WHERE id = ?", year, albumId);
  if (year < 0) writer.run("UPDATE albums SET year = NULL WHERE id = ?", albumId);

  if (title != track.title || artistId != track.artistId || albumId != track.albumId) {
    renewSearchEntry(writer, id, title, artistId, albumId);
  }
  return moved;
}

}  // namespace

Bereaved TagUpdate::apply(std::int64_t trackId, const TagChanges& changes,
                          const std::optional<FileStamp>& stamp) const {
  return _database.write([&](Writer& writer) {
    const auto found = rows::trackInfosInOrder(writer, {trackId});
    if (found.empty()) throw VelorinDatabaseError(fmt::format("Track {} not found", trackId));
    const TrackInfo& old = found.front();
    Bereaved moved = applyTo(writer, old, changes);
    if (stamp) setStamp(writer, old.track.filePath, *stamp);
    return moved;
  });
}

bool TagUpdate::knowsFile(const std::string& path) const {
  return _database
      .read([&](sqlite::Reader& reader) {
        return reader.first<std::int64_t>("SELECT 1 FROM tracks WHERE filePath = ? LIMIT 1", path);
      })
      .has_value();
}

std::optional<std::int64_t> TagUpdate::wholeFileTrack(const std::string& path) const {
  return _database.read([&](sqlite::Reader& reader) {
    return reader.first<std::int64_t>(
        "SELECT id FROM tracks WHERE filePath = ? AND cueStartTime IS NULL", path);
  });
}

void TagUpdate::stampFile(const std::string& path, const FileStamp& stamp) const {
  _database.write([&](Writer& writer) { setStamp(writer, path, stamp); });
}

void TagUpdate::cleanUp(const Bereaved& parents) const {
  _database.write([&](Writer& writer) { cleanUpOrphans(writer, parents); });
}

}  // namespace velorin
