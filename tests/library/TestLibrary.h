// A library in memory, with rows that a test puts there by hand.
#pragma once

#include <memory>

#include "library/DatabaseHandle.h"
#include "library/schema/Migrator.h"
#include "records/TrackInfo.h"

namespace velorin::test {

/// What a test says of a track; the rest is made up.
struct TrackRow {
  std::string title = "Title";
  std::string artist = "Artist";
  std::string album = "Album";
  std::string albumArtist = {};  ///< empty: the artist
  std::string path = {};         ///< empty: "/music/<artist>/<album>/<title>.flac"
  std::optional<int> year = {};  ///< of the album
  std::optional<int> disc = {};
  std::optional<int> number = {};
  double duration = 180;
  std::optional<std::string> genre = {};
  std::optional<std::string> composer = {};
  std::optional<std::string> format = "FLAC";
  std::optional<int> sampleRate = 44100;
  std::optional<int> bitDepth = 16;
  std::optional<std::int64_t> fileSize = 30'000'000;
  std::optional<std::string> lastModified = {};  ///< in the text form of the library
  std::optional<double> cueStart = {};
};

inline std::vector<std::int64_t> idsOf(const std::vector<TrackInfo>& infos) {
  std::vector<std::int64_t> ids;
  for (const TrackInfo& info : infos) ids.push_back(*info.track.id);
  return ids;
}

class TestLibrary {
 public:
  TestLibrary() : _queue(std::make_shared<ConnectionQueue>()), _database(_queue) {
    _queue->withConnection([](sqlite::Connection& connection) { schema::migrate(connection); });
  }

  const DatabaseHandle& database() const { return _database; }
  DatabaseHandle& database() { return _database; }
  ConnectionQueue& queue() { return *_queue; }

  /// Inserts the track, with its artist and album where they are new. Returns its id.
  std::int64_t add(const TrackRow& row) {
    return _queue->write([&](sqlite::Writer& writer) {
      const auto artist = artistId(writer, row.artist);
      const auto albumArtist = row.albumArtist.empty() ? artist : artistId(writer, row.albumArtist);
      writer.run("INSERT OR IGNORE INTO albums (title, artistId, year) VALUES (?, ?, ?)", row.album,
                 albumArtist, row.year);
      const auto album = *writer.first<std::int64_t>(
          "SELECT id FROM albums WHERE title = ? AND artistId = ?", row.album, albumArtist);
      writer.run(
          "INSERT INTO tracks (title, trackNumber, discNumber, duration, filePath, albumId, "
          "artistId, sampleRate, bitDepth, format, fileSize, lastModified, genre, composer, "
          "cueStartTime) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
          row.title, row.number, row.disc, row.duration,
          row.path.empty() ? "/music/" + row.artist + "/" + row.album + "/" + row.title + ".flac"
                           : row.path,
          album, artist, row.sampleRate, row.bitDepth, row.format, row.fileSize, row.lastModified,
          row.genre, row.composer, row.cueStart);
      const auto id = writer.lastInsertedId();
      writer.run("INSERT INTO tracks_fts(rowid, title, artistName, albumTitle) VALUES (?, ?, ?, ?)",
                 id, row.title, row.artist, row.album);
      return id;
    });
  }

  /// Runs a statement in a transaction of its own.
  template <class... Arguments>
  std::int64_t run(std::string_view sql, const Arguments&... arguments) {
    return _queue->write([&](sqlite::Writer& writer) { return writer.run(sql, arguments...); });
  }

  /// The first column of all rows of a query.
  template <class T, class... Arguments>
  std::vector<T> column(std::string_view sql, const Arguments&... arguments) {
    return _queue->read(
        [&](sqlite::Reader& reader) { return reader.column<T>(sql, arguments...); });
  }
  /// The first value of a query; T{} without a row.
  template <class T, class... Arguments>
  T value(std::string_view sql, const Arguments&... arguments) {
    return _queue->read(
        [&](sqlite::Reader& reader) { return reader.first<T>(sql, arguments...).value_or(T{}); });
  }

 private:
  static std::int64_t artistId(sqlite::Writer& writer, const std::string& name) {
    writer.run("INSERT OR IGNORE INTO artists (name) VALUES (?)", name);
    return *writer.first<std::int64_t>("SELECT id FROM artists WHERE name = ?", name);
  }

  std::shared_ptr<ConnectionQueue> _queue;
  DatabaseHandle _database;
};

}  // namespace velorin::test
