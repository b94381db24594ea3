// A library that changes in numbered steps, all or nothing each, and what it holds after each.
#pragma once

#include <algorithm>

#include "library/DatabaseHandle.h"
#include "library/queries/LibraryImport.h"
#include "library/queries/Playlists.h"
#include "library/queries/TrackRemoval.h"

namespace velorin::test {

/// Batch n comes in, is added to the playlist, the playlist is turned round, batch n - 2 goes.
class LibrarySteps {
 public:
  static constexpr int kKinds = 4;

  /// Over a library that prepare() made, at the step that it is at.
  explicit LibrarySteps(const DatabaseHandle& database) : _database(database) {}

  /// Makes an empty, migrated library what it is before step 0.
  void prepare() { Playlists(_database).createPlaylist("All"); }

  void run(std::int64_t step) {
    const std::int64_t batch = step / kKinds;
    switch (step % kKinds) {
      case 0:
        import(batch);
        break;
      case 1:
        addToPlaylist(batch);
        break;
      case 2:
        turnPlaylistRound();
        break;
      default:
        remove(batch - kStay);
    }
  }

  /// What stateOf() says after so many steps: tracks of each batch, then the playlist from its top.
  static std::string stateAfter(std::int64_t steps) {
    std::vector<std::int64_t> tracks;
    std::vector<std::int64_t> playlist;
    for (std::int64_t step = 0; step < steps; ++step) {
      const std::int64_t batch = step / kKinds;
      switch (step % kKinds) {
        case 0:
          tracks.push_back(batch);
          break;
        case 1:
          playlist.push_back(batch);
          break;
        case 2:
          std::reverse(playlist.begin(), playlist.end());
          break;
        default:
          std::erase(tracks, batch - kStay);
          std::erase(playlist, batch - kStay);
      }
    }
    std::string text;
    for (const auto batch : tracks) text += entry(batch, sizeOf(batch));
    text += "|";
    for (const auto batch : playlist) text += entry(batch, sizeOf(batch));
    return text;
  }

  std::string stateNow() const {
    return _database.read([](sqlite::Reader& reader) {
      const auto listed = [&](std::string_view sql) {
        std::string text;
        std::vector<std::int64_t> batches = reader.column<std::int64_t>(sql);
        for (auto from = batches.begin(); from != batches.end();) {
          const auto to = std::find_if(from, batches.end(), [&](auto one) { return one != *from; });
          text += entry(*from, to - from);
          from = to;
        }
        return text;
      };
      return listed("SELECT CAST(comment AS INTEGER) FROM tracks ORDER BY id") + "|" + listed(R"(
SELECT CAST(t.comment AS INTEGER) FROM playlist_tracks p JOIN tracks t ON t.id = p.trackId
ORDER BY p.position
)");
    });
  }

 private:
  static constexpr std::int64_t kPlaylist = 1;
  static constexpr std::int64_t kStay = 2;  ///< a batch goes when so many have come after it

  static std::int64_t sizeOf(std::int64_t batch) { return 40 + batch * 97 % 300; }
  static std::string entry(std::int64_t batch, std::int64_t tracks) {
    return std::to_string(batch) + ":" + std::to_string(tracks) + " ";
  }

  void import(std::int64_t batch) {
    std::vector<ScannedItem> items;
    for (std::int64_t i = 0; i < sizeOf(batch); ++i) {
      ScannedItem item;
      item.artistName = "Artist " + std::to_string(i % 7);
      item.albumTitle = "Album " + std::to_string(batch) + "." + std::to_string(i / 12);
      item.track.title = "Title " + std::to_string(i);
      item.track.filePath = "/music/" + item.albumTitle + "/" + item.track.title;
      item.track.comment = std::to_string(batch);
      item.track.lyrics = std::string(300, static_cast<char>('a' + i % 26));
      item.track.format = "FLAC";
      items.push_back(std::move(item));
    }
    LibraryImport(_database).insertBatch(items);
  }

  void addToPlaylist(std::int64_t batch) {
    Playlists(_database).addTracks(kPlaylist, _database.read([&](sqlite::Reader& reader) {
      return reader.column<std::int64_t>("SELECT id FROM tracks WHERE comment = ?",
                                         std::to_string(batch));
    }));
  }

  void turnPlaylistRound() {
    Playlists(_database).reorderTracks(kPlaylist, _database.read([](sqlite::Reader& reader) {
      return reader.column<std::int64_t>(
          "SELECT trackId FROM playlist_tracks ORDER BY position DESC");
    }));
  }

  void remove(std::int64_t batch) {
    const TrackRemoval removal(_database);
    removal.deleteTracks(_database.read([&](sqlite::Reader& reader) {
      return reader.column<std::string>("SELECT filePath FROM tracks WHERE comment = ?",
                                        std::to_string(batch));
    }));
    removal.cleanupOrphans();
  }

  const DatabaseHandle& _database;
};

}  // namespace velorin::test
