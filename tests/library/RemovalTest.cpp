// Tracks leave the library, and nothing else does.

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "library/TestLibrary.h"
#include "library/queries/FolderMove.h"
#include "library/queries/LibraryInventory.h"
#include "library/queries/MusicFolders.h"
#include "library/queries/ProcessedCues.h"
#include "library/queries/TrackRemoval.h"

namespace velorin {
namespace {

using test::TestLibrary;
using Ids = std::vector<std::int64_t>;
using Strings = std::vector<std::string>;

Ids trackIds(TestLibrary& library) {
  return library.column<std::int64_t>("SELECT id FROM tracks ORDER BY id");
}

/// What must hold after every operation.
void expectSound(TestLibrary& library) {
  EXPECT_EQ(library.column<std::int64_t>("SELECT rowid FROM tracks_fts ORDER BY rowid"),
            trackIds(library));
  EXPECT_EQ(library.column<std::string>("SELECT \"table\" FROM pragma_foreign_key_check"),
            Strings{});
  EXPECT_EQ(library.value<int>("PRAGMA foreign_keys"), 1);
  library.run("INSERT INTO tracks_fts(tracks_fts) VALUES ('integrity-check')");
}

/// Looks at the library while it is told, which only works outside a write.
class Listener : public SimilarityIndexListener {
 public:
  explicit Listener(TestLibrary& library) : _library(library) {}
  void tracksRemoved(const Ids& ids) noexcept override {
    for (const std::int64_t id : ids) {
      EXPECT_EQ(_library.value<int>("SELECT COUNT(*) FROM tracks WHERE id = ?", id), 0);
    }
    removed.insert(removed.end(), ids.begin(), ids.end());
  }
  void libraryCleared() noexcept override {
    EXPECT_TRUE(trackIds(_library).empty());
    ++cleared;
  }

  Ids removed;
  int cleared = 0;

 private:
  TestLibrary& _library;
};

TEST(Removal, MoreThanOneStatementTakes) {
  TestLibrary library;
  TrackRemoval removal(library.database());
  const auto listener = std::make_shared<Listener>(library);
  removal.setSimilarityIndex(listener);
  Ids ids;
  Strings paths;
  for (int i = 0; i < 1200; ++i) {
    const std::string name = std::to_string(i);
    ids.push_back(library.add({.title = "id", .artist = "A" + name}));
    library.add({.title = "path", .artist = "P" + name, .path = paths.emplace_back("/" + name)});
  }
  library.add({.title = "stays", .artist = "A0"});
  EXPECT_EQ(removal.deleteTracks(paths), 1200);
  EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM artists"), 2400);
  ids.push_back(99'999);
  EXPECT_EQ(removal.deleteTracks(ids), 1200);
  EXPECT_EQ(listener->removed.size(), 2401U);
  EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM artists WHERE name LIKE 'A%'"), 1);
  removal.cleanupOrphans();
  EXPECT_EQ(library.column<std::string>("SELECT name FROM artists"), Strings{"A0"});
  EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM albums"), 1);
  EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM sqlite_master WHERE name LIKE '%of_artists'"),
            0);
  expectSound(library);
}

TEST(Removal, CleanUpFindsTheWeakestFormatAndLeavesAnAlbumItsArtist) {
  using Format = std::optional<std::string>;
  for (const auto& [kept, weakest] : {std::pair<Format, Format>{"AAC", "AAC"}, {{}, {}}}) {
    TestLibrary library;
    for (const Format& format : {Format("DSD"), Format("FLAC"), kept}) {
      library.add({.artist = "Singer", .albumArtist = "Various", .format = format});
    }
    library.run("UPDATE albums SET worstFormat = 'stale'");
    TrackRemoval(library.database()).cleanupOrphans();
    EXPECT_EQ(library.value<Format>("SELECT worstFormat FROM albums"), weakest);
    EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM artists"), 2);
  }
}

TEST(Removal, AClearedLibraryKeepsItsFoldersAndTakesNewTracks) {
  TestLibrary library;
  TrackRemoval removal(library.database());
  const auto listener = std::make_shared<Listener>(library);
  removal.setSimilarityIndex(listener);
  MusicFolders(library.database()).addFolder("/m");
  ProcessedCues(library.database()).markCueProcessed("/m", 1);
  library.add({.title = "gone"});
  library.add({.title = "gone too"});
  for (const char* sql :
       {"INSERT INTO playlists (name, createdAt, updatedAt) VALUES ('p', '', '')",
        "INSERT INTO playlist_tracks (playlistId, trackId, position, createdAt) "
        "VALUES (1, 1, 0, '')",
        "INSERT INTO playbackHistory (trackId, playedAt) VALUES (1, '')",
        "INSERT INTO trackWaveform (trackId, peaks) VALUES (1, x'00')",
        "INSERT INTO trackAnalysis (trackId, analyzedAt) VALUES (1, '')",
        "INSERT INTO duplicateCandidates VALUES (1, 2, '', 1)",
        "INSERT INTO pinnedItems (type, referenceId, position) VALUES ('song', '1', 0)"}) {
    library.run(sql);
  }

  // A failure half-way: nothing has happened.
  library.run(
      "CREATE TRIGGER no BEFORE DELETE ON pinnedItems BEGIN SELECT RAISE(ABORT, 'no'); END");
  EXPECT_THROW(removal.clearLibrary(), VelorinDatabaseError);
  EXPECT_EQ(trackIds(library).size(), 2U);
  expectSound(library);
  library.run("DROP TRIGGER no");

  removal.clearLibrary();
  EXPECT_EQ(listener->cleared, 1);
  for (const char* table :
       {"tracks", "albums", "artists", "playlists", "playlist_tracks", "playbackHistory",
        "trackWaveform", "trackAnalysis", "duplicateCandidates", "pinnedItems", "tracks_fts"}) {
    EXPECT_EQ(library.value<int>(std::string("SELECT COUNT(*) FROM ") + table), 0) << table;
  }
  EXPECT_EQ(
      library.column<std::string>("SELECT path FROM musicFolders, processedCues USING (path)"),
      Strings{"/m"});
  EXPECT_EQ(library.add({.title = "new"}), 1);
  EXPECT_EQ(library.value<int>("SELECT rowid FROM tracks_fts WHERE tracks_fts MATCH 'new*'"), 1);
  expectSound(library);
  EXPECT_THROW(TrackRemoval(DatabaseHandle{}).clearLibrary(), VelorinDatabaseError);
}

/// The library as a list, and the operations as anyone would write them down.
struct Model {
  struct Entry {
    std::string path;
    std::optional<double> cueStart;
    auto operator<=>(const Entry&) const = default;
  };
  std::map<std::int64_t, Entry> tracks;

  template <class Doomed>
  std::int64_t removeIf(Doomed&& doomed) {
    return static_cast<std::int64_t>(
        std::erase_if(tracks, [&](const auto& track) { return doomed(track.second); }));
  }
  void move(const std::string& from, const std::string& to) {
    for (auto& [id, entry] : tracks) {
      if (entry.path.starts_with(from + "/")) entry.path = to + entry.path.substr(from.size());
    }
  }
};

TEST(Removal, AnyCourseOfEventsLeavesWhatTheModelSays) {
  const Strings names = {"a", "A", "a2", "%", "_", "\xC3", "\xFF/b", "a/b", "a\\"};
  for (unsigned seed = 0; seed < 8; ++seed) {
    std::mt19937 random(seed);
    const auto upTo = [&](std::size_t count) { return random() % count; };
    const auto folder = [&] { return "/" + names[upTo(names.size())]; };
    TestLibrary library;
    Model model;
    TrackRemoval removal(library.database());
    for (int step = 0; step < 120; ++step) {
      const std::string path = folder() + "/" + std::to_string(upTo(4));
      const auto at = [&](const Model::Entry& entry) { return entry.path == path; };
      switch (upTo(10)) {
        case 0:
          EXPECT_EQ(removal.deleteTracks({path, path}), model.removeIf(at));
          break;
        case 1:
          EXPECT_EQ(removal.deleteCueTracks({path}),
                    model.removeIf([&](const auto& e) { return at(e) && e.cueStart; }));
          break;
        case 2:
          EXPECT_EQ(removal.deleteStandaloneTracks({path}),
                    model.removeIf([&](const auto& e) { return at(e) && !e.cueStart; }));
          break;
        case 3: {
          Ids ids;
          for (const auto& track : model.tracks) {
            if (upTo(8) == 0) ids.push_back(track.first);
          }
          for (const std::int64_t id : ids) model.tracks.erase(id);
          EXPECT_EQ(removal.deleteTracks(ids), static_cast<std::int64_t>(ids.size()));
          break;
        }
        case 4: {
          const std::string gone = folder();
          model.removeIf([&](const auto& e) { return e.path.starts_with(gone + "/"); });
          MusicFolders(library.database()).addFolder(gone);
          removal.removeFolder(gone);
          EXPECT_TRUE(MusicFolders(library.database()).getFolders().empty());
          break;
        }
        case 5: {
          const std::string from = folder();
          const std::string to = upTo(2) == 0 ? from + "/b" : folder();
          model.move(from, to);
          FolderMove(library.database()).migrateFolderPath(from, to);
          break;
        }
        default: {
          const std::string artist = std::to_string(upTo(6));
          const std::optional<double> cue =
              upTo(2) == 0 ? std::optional<double>(upTo(3) * 1.5) : std::nullopt;
          const auto id = library.add(
              {.artist = artist, .album = std::to_string(upTo(3)), .path = path, .cueStart = cue});
          model.tracks[id] = {path, cue};
        }
      }
      std::map<std::int64_t, Model::Entry> rows;
      library.queue().read([&](sqlite::Reader& reader) {
        reader.each("SELECT id, filePath, cueStartTime FROM tracks", [&](const sqlite::Row& row) {
          rows[row.get<std::int64_t>(0)] = {row.get<std::string>(1),
                                            row.get<std::optional<double>>(2)};
        });
      });
      ASSERT_EQ(rows, model.tracks) << "seed " << seed << " step " << step;
      expectSound(library);
      const PathTable keys = LibraryInventory(library.database()).existingKeys();
      std::set<std::string> expected;
      for (const auto& [id, entry] : rows) expected.insert(libraryKey(entry.path, entry.cueStart));
      EXPECT_EQ(keys.size(), expected.size());
      for (const std::string& key : expected) EXPECT_TRUE(keys.contains(key)) << key;
    }
    EXPECT_THROW(removal.removeFolder(""), VelorinDatabaseError);
    removal.cleanupOrphans();
    EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM albums WHERE id NOT IN "
                                 "(SELECT albumId FROM tracks)"),
              0);
    EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM artists WHERE id NOT IN "
                                 "(SELECT artistId FROM tracks)"),
              0);
    expectSound(library);
  }
}

}  // namespace
}  // namespace velorin
