// Playlists and pins.

#include <gtest/gtest.h>

#include <numeric>
#include <random>

#include "foundation/Dates.h"
#include "library/TestLibrary.h"
#include "library/queries/Pins.h"
#include "library/queries/Playlists.h"

namespace velorin {
namespace {

using test::TestLibrary;
using Ids = std::vector<std::int64_t>;
using Code = PlaylistError::Code;

Ids addTracks(TestLibrary& library, int count) {
  Ids ids;
  for (int i = 0; i < count; ++i) {
    ids.push_back(library.add(
        {.title = std::to_string(i), .album = "Album " + std::to_string(i % (1 + count / 3))}));
  }
  return ids;
}

/// The tracks of a playlist; the test fails unless they stand at 0, 1, 2 …
Ids tracksOf(TestLibrary& library, std::int64_t playlist) {
  Ids dense(library.value<std::size_t>("SELECT COUNT(*) FROM playlist_tracks WHERE playlistId = ?",
                                       playlist));
  std::iota(dense.begin(), dense.end(), 0);
  EXPECT_EQ(
      library.column<std::int64_t>(
          "SELECT position FROM playlist_tracks WHERE playlistId = ? ORDER BY position", playlist),
      dense);
  return library.column<std::int64_t>(
      "SELECT trackId FROM playlist_tracks WHERE playlistId = ? ORDER BY position", playlist);
}

TEST(Playlists, AreMadeRenamedHiddenAndListed) {
  TestLibrary library;
  Playlists playlists(library.database());
  const auto moment = *dates::fromText("2025-01-02 03:04:05.678");
  const auto later = moment + std::chrono::hours(1);
  const Playlist plain = playlists.createPlaylist(" \n Évening\t", moment);
  EXPECT_EQ(plain, (Playlist{plain.id, "Évening", false, std::nullopt, false, moment, moment}));
  const Playlist smart = playlists.createSmartPlaylist("best", "{}", moment);
  EXPECT_EQ(smart, (Playlist{smart.id, "best", true, "{}", false, moment, moment}));
  playlists.updateSmartPlaylist(*smart.id, "[]", later);
  playlists.renamePlaylist(*smart.id, " BEST ", later);
  playlists.createPlaylist("Alpha", moment);
  const auto all = playlists.fetchPlaylists();
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[1], (Playlist{smart.id, "BEST", true, "[]", false, moment, later}));
  EXPECT_EQ(playlists.fetchPlaylists(1, 1), std::vector{all[1]});
  playlists.deletePlaylist(*plain.id);
  EXPECT_EQ(playlists.fetchPlaylists(), (std::vector{all[0], all[1]}));

  const DatabaseHandle none;
  Playlists nowhere(none);
  struct Case {
    const char* name;
    std::function<void()> operation;
    Code code;
    const char* text;
  };
  const std::vector<Case> cases{
      {"empty", [&] { nowhere.createPlaylist(" \n\t"); }, Code::emptyName,
       "Playlist name is empty"},
      {"rename to nothing", [&] { playlists.renamePlaylist(*smart.id, "\xE2\x80\x83"); },
       Code::emptyName, "Playlist name is empty"},
      {"no database", [&] { nowhere.createPlaylist("x"); }, Code::databaseUnavailable,
       "Database unavailable"},
      {"taken", [&] { playlists.createPlaylist("alpha "); }, Code::nameTaken,
       "A playlist with this name exists"},
      {"name of a deleted one", [&] { playlists.createSmartPlaylist("Évening", "{}"); },
       Code::nameOfDeleted, "A deleted playlist had this name and keeps it: choose another name"},
      {"rename nothing", [&] { playlists.renamePlaylist(99, "New"); }, Code::unknownPlaylist,
       "The playlist does not exist any more"},
  };
  for (const Case& each : cases) {
    try {
      each.operation();
      ADD_FAILURE() << each.name;
    } catch (const PlaylistError& error) {
      EXPECT_EQ(error.code, each.code) << each.name;
      EXPECT_EQ(error.message, each.text) << each.name;
    }
  }
  EXPECT_EQ(playlists.fetchPlaylists(), (std::vector{all[0], all[1]}));
}

TEST(Playlists, StayDenseWhateverIsDoneToThem) {
  std::mt19937 random(21);
  TestLibrary library;
  const Ids tracks = addTracks(library, 30);
  Playlists playlists(library.database());
  const auto playlist = *playlists.createPlaylist("a").id;
  const auto other = *playlists.createPlaylist("b").id;
  playlists.addTracks(other, tracks);
  Ids model;
  const auto holds = [](const Ids& ids, std::int64_t id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
  };
  for (int step = 0; step < 400; ++step) {
    // With repetitions, and with ids that no track has.
    Ids some(random() % 12);
    for (auto& id : some) id = 1 + static_cast<std::int64_t>(random() % 33);
    const auto one = tracks[random() % tracks.size()];
    switch (random() % 4) {
      case 0:
        playlists.addTracks(playlist, some);
        for (const auto id : some) {
          if (holds(tracks, id) && !holds(model, id)) model.push_back(id);
        }
        break;
      case 1:
        playlists.removeTrack(playlist, one);
        std::erase(model, one);
        break;
      case 2: {
        playlists.reorderTracks(playlist, some);
        Ids ordered;
        for (const auto id : some) {
          if (holds(model, id) && !holds(ordered, id)) ordered.push_back(id);
        }
        for (const auto id : model) {
          if (!holds(ordered, id)) ordered.push_back(id);
        }
        model = ordered;
        break;
      }
      default:  // the whole list backwards
        std::reverse(model.begin(), model.end());
        playlists.reorderTracks(playlist, model);
    }
    ASSERT_EQ(tracksOf(library, playlist), model) << "step " << step;
  }
  EXPECT_EQ(tracksOf(library, other), tracks);
}

TEST(Playlists, AGapThatATrackLeftIsClosed) {
  TestLibrary library;
  Ids tracks = addTracks(library, 6);
  Playlists playlists(library.database());
  const auto playlist = *playlists.createPlaylist("a").id;
  const auto moment = *dates::fromText("2025-01-02 03:04:05.678");
  playlists.addTracks(playlist, tracks, moment);
  library.run("DELETE FROM tracks WHERE id = ?", tracks[2]);
  tracks.erase(tracks.begin() + 2);
  playlists.addTracks(playlist, {tracks[1]}, moment);
  playlists.reorderTracks(playlist, {}, moment);
  EXPECT_EQ(tracksOf(library, playlist), tracks);
  EXPECT_EQ(playlists.fetchPlaylists().at(0).updatedAt, moment);
  EXPECT_EQ(test::idsOf(playlists.fetchPlaylistTracks(playlist, 2, 1)),
            (Ids{tracks[1], tracks[2]}));
  playlists.removeTrack(playlist, 99);
  EXPECT_EQ(playlists.fetchPlaylists().at(0).updatedAt, moment);
}

TEST(Playlists, CoversComeFromFourAlbums) {
  TestLibrary library;
  Ids tracks = addTracks(library, 1100);
  Playlists playlists(library.database());
  const auto cover = [&] { return playlists.fetchPlaylistCover(tracks); };
  const auto plain = [&] {
    return library.column<std::int64_t>(R"(
SELECT MIN(t.id) FROM tracks t JOIN albums a ON t.albumId = a.id
GROUP BY t.albumId ORDER BY (a.artworkPath IS NOT NULL) DESC, a.id LIMIT 4)");
  };
  std::reverse(tracks.begin(), tracks.end());
  EXPECT_EQ(cover(), plain());
  library.run("UPDATE albums SET artworkPath = 'x' WHERE id IN (7, 300, 301)");
  EXPECT_EQ(cover(), plain());
  EXPECT_EQ(playlists.fetchPlaylistCover({tracks[0]}), Ids{tracks[0]});
  EXPECT_TRUE(playlists.fetchPlaylistCover({}).empty());
}

TEST(Pins, StandInTheOrderOfPinning) {
  TestLibrary library;
  Pins pins(library.database());
  const auto moment = *dates::fromText("2025-01-02 03:04:05.678");
  const PinnedItem rock = pins.pin(PinnedItemType::genre, "Rock", moment);
  EXPECT_EQ(rock, (PinnedItem{rock.id, "genre", "Rock", 0, moment}));
  const PinnedItem album = pins.pin(PinnedItemType::album, "12", moment);
  pins.pin(PinnedItemType::song, "12", moment);
  EXPECT_EQ(pins.pin(PinnedItemType::genre, "Rock"), rock);
  pins.unpin(PinnedItemType::song, "12");
  pins.unpin(PinnedItemType::song, "12");
  EXPECT_EQ(pins.fetchPins(), (std::vector{rock, album}));
  pins.unpin(PinnedItemType::genre, "Rock");
  EXPECT_EQ(pins.pin(PinnedItemType::artist, "1").position, 2);
}

}  // namespace
}  // namespace velorin
