// What the listener did to tracks whose rows go and come back, under the operations that a scan
// uses.

#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "foundation/Preferences.h"
#include "library/TestLibrary.h"
#include "library/listening/ListeningKeeper.h"
#include "library/queries/LibraryImport.h"
#include "library/queries/Pins.h"
#include "library/queries/PlaybackHistory.h"
#include "library/queries/Playlists.h"
#include "library/queries/TrackEdits.h"
#include "library/queries/TrackRemoval.h"

namespace velorin {
namespace {

using Ids = std::vector<std::int64_t>;
using Strings = std::vector<std::string>;

constexpr const char* kFavorites = "favoriteTrackIds";

/// What a file holds; the number is its sound.
struct File {
  int sound = 0;
  std::string title = "Title";
  double duration = 180;
  std::int64_t size = 1000;
  int modified = 0;  ///< second
  std::optional<double> cueStart = {};
  std::string artist = "Artist";
  std::string album = "Album";
};

/// A library, the disk it was scanned from, and the steps of a scan.
class Listener {
 public:
  std::map<std::string, File> disk;
  test::TestLibrary library;
  Preferences preferences;
  std::map<std::string, int> decoded;  ///< how often each file was
  bool isCancelled = false;

  void import(const Strings& paths) {
    std::vector<ScannedItem> items;
    for (const std::string& path : paths) {
      const File& file = disk.at(path);
      ScannedItem& item = items.emplace_back();
      item.artistName = file.artist;
      item.albumTitle = file.album;
      item.track.title = file.title;
      item.track.filePath = path;
      item.track.duration = file.duration;
      item.track.fileSize = file.size;
      item.track.lastModified = TimePoint{} + std::chrono::seconds(file.modified);
      item.track.cueStartTime = file.cueStart;
    }
    LibraryImport(database()).insertBatch(items);
  }
  void remove(const Strings& paths) {
    const auto noted = keeper();
    removal().deleteTracks(paths);
    removal().cleanupOrphans();
  }
  void move(const std::string& from, const std::string& to) {
    auto file = disk.extract(from);
    file.key() = to;
    disk.insert(std::move(file));
  }
  void find() {
    keeper().afterScan([&] { return isCancelled; });
  }
  std::int64_t idOf(const std::string& path) {
    return library.value<std::int64_t>("SELECT id FROM tracks WHERE filePath = ?", path);
  }
  void play(const std::string& path, int times = 1) {
    for (int i = 0; i < times; ++i) {
      PlaybackHistory(database()).recordPlay(idOf(path), TimePoint{}, 10, false);
    }
  }
  int plays(const std::string& path) {
    return library.value<int>("SELECT totalPlays FROM tracks WHERE filePath = ?", path);
  }
  int parked() { return library.value<int>("SELECT COUNT(*) FROM departedTracks"); }
  void setFavorites(const Ids& ids) {
    PreferenceList list(ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i) list[i].value = ids[i];
    preferences.setList(kFavorites, list);
  }
  Ids favorites() {
    Ids ids;
    for (const auto& each : preferences.getList(kFavorites).value_or(PreferenceList{})) {
      ids.push_back(std::get<std::int64_t>(each.value));
    }
    return ids;
  }
  /// All that was done to a track, as text.
  std::string stateOf(const std::string& path) {
    const auto id = idOf(path);
    return library.value<std::string>(R"(
SELECT totalPlays || ' ' || totalSkips || ' ' || quote(rating) || ' ' || quote(bookmarks) || ' '
       || quote(syncedLyrics)
       || (SELECT COALESCE(group_concat(' ' || playedAt || duration || skipped), '')
           FROM (SELECT * FROM playbackHistory WHERE trackId = ?1 ORDER BY id))
       || (SELECT COALESCE(group_concat(' in ' || playlistId || ' at ' || position), '')
           FROM (SELECT * FROM playlist_tracks WHERE trackId = ?1 ORDER BY playlistId))
       || (SELECT COALESCE(group_concat(' pinned ' || position), '')
           FROM pinnedItems WHERE type = 'song' AND referenceId = CAST(?1 AS TEXT))
FROM tracks WHERE id = ?1)",
                                      id) +
           (std::ranges::count(favorites(), id) != 0 ? " loved" : "");
  }

  DatabaseHandle& database() { return library.database(); }
  TrackRemoval& removal() { return _removal; }

 private:
  using TimePoint = std::chrono::system_clock::time_point;

  ListeningKeeper keeper() {
    return {database(), preferences, [&](const std::string& path) -> std::optional<std::string> {
              ++decoded[path];
              const auto file = disk.find(path);
              if (file == disk.end()) return std::nullopt;
              return std::to_string(file->second.sound);
            }};
  }

  TrackRemoval _removal{library.database()};
};

/// Does something of every kind to the file's track.
void enjoy(Listener& user, const std::string& path, std::int64_t playlist) {
  const auto id = user.idOf(path);
  PlaybackHistory history(user.database());
  history.recordPlay(id, std::chrono::system_clock::from_time_t(1000), 12.5, false);
  history.recordPlay(id, std::chrono::system_clock::from_time_t(1000), 1, true);
  history.setRating(id, 4);
  TrackEdits edits(user.database());
  edits.updateBookmarks(id, {{"id", 3, "there", "red"}});
  edits.updateLyrics(id, std::nullopt, "[00:01] la");
  Playlists(user.database()).addTracks(playlist, {id});
  Pins(user.database()).pin(PinnedItemType::song, std::to_string(id));
  user.setFavorites({id, 9999});
}

TEST(Listening, EverythingComesBackOnEveryRoad) {
  struct Road {
    const char* name;
    void (*go)(Listener& user, std::string& path);
  };
  for (const Road& road : {
           Road{"edited",
                [](Listener&user, std::string&path) {
                  user.remove({path, "/m/0"});
                  user.disk[path].title = "Other";
                  user.disk[path].size = 2;
                  user.import({path, "/m/0"});
                }},
           Road{"moved",
                [](Listener&user, std::string&path) {
                  user.remove({path});
                  user.move(path, "/n/new name");
                  path = "/n/new name";
                  user.import({path});
                }},
           Road{"retagged and moved",
                [](Listener&user, std::string&path) {
                  user.find();
                  user.remove({path});
                  user.move(path, "/n/x");
                  path = "/n/x";
                  user.disk[path].title = "Other";
                  user.disk[path].size = 1001;
                  user.disk["/n/other"] = {.sound = 7, .modified = 1};
                  user.import({"/n/other", path});
                }},
           Road{"made shorter",
                [](Listener&user, std::string&path) {
                  user.find();
                  user.remove({path});
                  user.disk[path] = {.sound = 99, .duration = 100};
                  user.import({path});
                }},
           Road{"folder removed and added",
                [](Listener&user, std::string&path) {
                  user.find();
                  user.removal().removeFolder("/m");
                  user.import({path, "/m/0", "/m/2"});
                }},
           Road{"full rescan",
                [](Listener&user, std::string&path) {
                  user.find();
                  user.removal().clearForRescan();
                  user.import({"/m/2", path, "/m/0"});
                }},
       }) {
    SCOPED_TRACE(road.name);
    Listener user;
    std::string path = "/m/1";
    user.disk = {{"/m/0", {.sound = 10}}, {path, {.sound = 11}}, {"/m/2", {.sound = 12}}};
    user.disk["/m/0"].title = "Before";
    user.disk["/m/2"].title = "After";
    user.import({"/m/0", path, "/m/2"});
    Playlists playlists(user.database());
    const auto list = *playlists.createPlaylist("List").id;
    playlists.addTracks(list, {user.idOf("/m/0")});
    enjoy(user, path, list);
    playlists.addTracks(list, {user.idOf("/m/2")});
    const auto oldId = user.idOf(path);
    const std::string before = user.stateOf(path);
    EXPECT_NE(before.find("in 1 at 1 pinned 0 loved"), std::string::npos) << before;

    road.go(user, path);
    user.find();
    EXPECT_NE(user.idOf(path), oldId);
    EXPECT_EQ(user.stateOf(path), before);
    EXPECT_EQ(user.favorites(), (Ids{user.idOf(path), 9999}));
    EXPECT_EQ(user.parked(), 0);
    // The others keep their places around it.
    EXPECT_EQ(playlists.fetchPlaylistTracks(list).front().track.filePath, "/m/0");
    EXPECT_EQ(playlists.fetchPlaylistTracks(list).back().track.filePath, "/m/2");
  }
}

TEST(Listening, WhatTheListenerRemovesIsForgotten) {
  Listener user;
  user.disk = {{"/m/1", {.sound = 1}}, {"/m/2", {.sound = 2}}};
  user.import({"/m/1"});
  user.play("/m/1");
  user.removal().deleteTracks(Ids{user.idOf("/m/1")});
  EXPECT_EQ(user.parked(), 0);
  user.import({"/m/1", "/m/2"});
  EXPECT_EQ(user.plays("/m/1"), 0);

  user.play("/m/2");
  user.setFavorites({user.idOf("/m/2"), 77});
  user.remove({"/m/1", "/m/2"});
  EXPECT_EQ(user.parked(), 1) << "of a track that nothing was done to nothing is kept";
  user.removal().clearLibrary();
  user.import({"/m/2"});
  EXPECT_EQ(user.plays("/m/2"), 0);
  EXPECT_EQ(user.parked(), 0);
  // Nor may a row that gets the id of a favourite pass for one; one marked since stays.
  const auto marked = user.idOf("/m/2");
  user.setFavorites({3, 77, marked});
  user.find();
  EXPECT_EQ(user.favorites(), Ids{marked});
}

TEST(Listening, AFileThatWentTwiceComesBackOnce) {
  Listener user;
  // Of other lengths, so that neither is taken for the other; then of one that cannot be told.
  for (const double duration : {100., 200., 0.}) {
    user.disk["/m/1"].duration = duration;
    user.import({"/m/1", "/m/1"});
    if (duration == 0) break;
    user.play("/m/1");
    user.remove({"/m/1"});
  }
  EXPECT_EQ(user.library.column<int>("SELECT totalPlays FROM tracks ORDER BY id"),
            (std::vector<int>{2, 0}));
  EXPECT_EQ(user.library.value<int>("SELECT COUNT(*) FROM playbackHistory"), 2);
  EXPECT_EQ(user.parked(), 0);
}

TEST(Listening, APlayThatEndsAfterTheScanCounts) {
  Listener user;
  user.disk = {{"/m/1", {.sound = 1}}};
  user.import({"/m/1"});
  const auto oldId = user.idOf("/m/1");
  PlaybackHistory history(user.database());
  history.setRating(oldId, 5);
  user.remove({"/m/1"});
  history.recordPlay(oldId, {}, 10, false);
  user.import({"/m/1"});
  user.find();
  history.recordPlay(oldId, {}, 10, false);
  EXPECT_EQ(user.plays("/m/1"), 2);
  EXPECT_EQ(user.library.value<int>("SELECT COUNT(*) FROM playbackHistory"), 2);
  EXPECT_THROW(history.recordPlay(999, {}, 10, false), VelorinDatabaseError);
}

TEST(Listening, PinsOfAlbumsAndArtistsFollowTheirNames) {
  for (const bool isRescan : {false, true}) {
    Listener user;
    user.disk = {{"/m/1", {.artist = "Björk", .album = "Post"}}};
    user.import({"/m/1"});
    Pins pins(user.database());
    pins.pin(PinnedItemType::album, "1");
    pins.pin(PinnedItemType::artist, "1");
    pins.pin(PinnedItemType::genre, "1");
    if (isRescan) {
      user.removal().clearForRescan();
    } else {
      user.remove({"/m/1"});
    }
    user.disk["/m/1"].artist = "BJöRK";
    user.import({"/m/1"});
    Strings references;
    for (const auto& pin : pins.fetchPins()) references.push_back(pin.referenceId);
    EXPECT_EQ(references, (Strings{"2", "2", "1"}));
  }
}

TEST(Listening, APlaylistThatWasChangedMeanwhileTakesTheTrackWhereItStood) {
  Listener user;
  Strings paths;
  Ids ids;
  for (int i = 0; i < 6; ++i) {
    user.disk[paths.emplace_back("/m/" + std::to_string(i))] = {.sound = i, .duration = 100. + i};
  }
  user.import(paths);
  for (const auto& path : paths) ids.push_back(user.idOf(path));
  Playlists playlists(user.database());
  const auto kept = *playlists.createPlaylist("Kept").id;
  const auto gone = *playlists.createPlaylist("Gone").id;
  playlists.addTracks(kept, ids);
  playlists.addTracks(gone, ids);
  user.remove({"/m/1", "/m/2", "/m/5"});
  playlists.reorderTracks(kept, {ids[4], ids[3], ids[0]});
  user.library.run("DELETE FROM playlists WHERE id = ?", gone);
  user.import({"/m/5", "/m/2", "/m/1"});
  std::string order;
  for (const auto& info : playlists.fetchPlaylistTracks(kept)) order += info.track.filePath.back();
  EXPECT_EQ(order, "412305");
  // One that is back already, under another id, has one place only.
  user.disk["/m/1 copy"] = user.disk["/m/1"];
  user.import({"/m/1 copy"});
  playlists.addTracks(kept, {user.idOf("/m/1 copy")});
  user.find();
  user.remove({"/m/1"});
  user.find();
  EXPECT_EQ(playlists.countPlaylistTracks(kept), 6);
}

/// "/m/a:1 /m/b:2": what is said of each path.
std::map<std::string, std::string> saidOf(const std::string& text) {
  std::map<std::string, std::string> all;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const auto colon = word.find(':');
    all[word.substr(0, colon)] = word.substr(colon + 1);
  }
  return all;
}

/// Of each path its sound, and "!" for other tags, "@" for another time, "#3" for a place in a
/// sheet.
std::map<std::string, File> filesOf(const std::string& text) {
  std::map<std::string, File> files;
  for (const auto& [path, said] : saidOf(text)) {
    File& file = files[path] = {.sound = said[0] - '0', .title = "A"};
    const char mark = said.size() > 1 ? said[1] : ' ';
    if (mark == '!') file = {.sound = file.sound, .title = "A!", .size = 1001, .modified = 5};
    if (mark == '@') file.modified = 9;
    if (mark == '#') file.cueStart = said[2] - '0';
  }
  return files;
}

TEST(Listening, AmongSeveralTheLikeliestTrackIsTaken) {
  struct Case {
    const char* name;
    const char* before;
    const char* after;
    const char* plays;  ///< of the files before
    const char* expected;
    int parked = 0;
    bool isSoundKnown = true;
  };
  for (const Case& each : {
           Case{"two copies, both moved and retagged", "/m/a:1 /m/b:1", "/n/a:1! /n/b:1!",
                "/m/a:1 /m/b:2", "/n/a:1 /n/b:2"},
           Case{"of two copies one goes", "/m/a:1 /k/b:1", "/k/b:1", "/m/a:1 /k/b:2", "/k/b:3"},
           Case{"renamed while a copy of that name stays", "/m/a:1 /k/a:1", "/k/a:1 /m/z:1!",
                "/m/a:1 /k/a:5", "/k/a:5 /m/z:1"},
           Case{"two files change names", "/m/a:1 /m/b:2", "/m/a:2@ /m/b:1@", "/m/a:1 /m/b:2",
                "/m/a:2 /m/b:1"},
           Case{"another sound, same size and tags", "/m/a:1", "/n/a:2@", "/m/a:1", "/n/a:0", 1},
           Case{"sound unknown, tags the same", "/m/a:1", "/n/z:1@", "/m/a:1", "/n/z:1", 0, false},
           Case{"sound unknown, two alike", "/m/a:1", "/n/y:1@ /n/z:1@", "/m/a:1", "/n/y:0 /n/z:0",
                1, false},
           Case{"sound unknown, other tags", "/m/a:1", "/n/a:1!", "/m/a:1", "/n/a:0", 1, false},
           Case{"a CUE track of another place", "/m/a:1#3", "/n/a:1#4", "/m/a:1", "/n/a:0", 1},
       }) {
    const auto before = filesOf(each.before);
    const auto after = filesOf(each.after);
    const auto playsBefore = saidOf(each.plays);
    SCOPED_TRACE(each.name);
    Listener user;
    user.disk = before;
    Strings paths;
    for (const auto& [path, file] : user.disk) paths.push_back(path);
    user.import(paths);
    for (const auto& [path, plays] : playsBefore) user.play(path, std::stoi(plays));
    user.setFavorites({user.idOf(paths[0])});
    if (each.isSoundKnown) user.find();
    // What a scan sees: files that are gone or were written, then those that are new.
    const auto differs = [](const File& x, const File& y) {
      return x.size != y.size || x.modified != y.modified;
    };
    Strings changed;
    Strings found;
    for (const auto& [path, file] : before) {
      const auto now = after.find(path);
      if (now == after.end() || differs(now->second, file)) changed.push_back(path);
    }
    for (const auto& [path, file] : after) {
      const auto then = before.find(path);
      if (then == before.end() || differs(then->second, file)) found.push_back(path);
    }
    user.disk = after;
    user.remove(changed);
    user.import(found);
    user.find();
    EXPECT_EQ(user.parked(), each.parked);
    for (const auto& [path, plays] : saidOf(each.expected)) {
      EXPECT_EQ(user.plays(path), std::stoi(plays)) << path;
      // The favourite is where the first file's plays are.
      if (plays == playsBefore.begin()->second) {
        EXPECT_EQ(user.favorites(), Ids{user.idOf(path)});
      }
    }
  }
}

TEST(Listening, SoundsAreLearntOnceAndInBoundedSteps) {
  Listener user;
  Strings paths;
  for (int i = 0; i < 300; ++i) {
    user.disk[paths.emplace_back("/m/" + std::to_string(i))] = {.sound = i, .duration = 100. + i};
  }
  user.import(paths);
  user.disk["/m/silent"] = {};
  user.import({"/m/silent"});
  for (const auto& path : paths) user.play(path);
  user.isCancelled = true;
  user.find();
  EXPECT_EQ(user.decoded.size(), 0U);
  user.isCancelled = false;
  user.find();
  EXPECT_EQ(user.decoded.size(), ListeningKeeper::kLearntPerScan);
  user.find();
  user.find();
  EXPECT_EQ(user.decoded.size(), paths.size());
  // A track that has gone for good costs nothing any more, once it was looked for.
  user.disk.erase("/m/7");
  user.remove({"/m/7"});
  user.disk["/m/8"].modified = 1;
  user.remove({"/m/8"});
  user.import({"/m/8"});
  for (int i = 0; i < 3; ++i) user.find();
  for (const auto& [path, times] : user.decoded) EXPECT_EQ(times, path == "/m/8" ? 2 : 1) << path;
  // It was not to be had then, but is now, under another name and with other tags.
  user.disk["/n/7"] = {.sound = 7, .title = "Seven", .duration = 107, .size = 77};
  user.import({"/n/7"});
  user.find();
  EXPECT_EQ(user.plays("/n/7"), 1);
}

}  // namespace
}  // namespace velorin
