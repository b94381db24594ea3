// What the listener did with a synthetic library.
#include <algorithm>
#include <array>

#include "library/queries/LibraryImport.h"
#include "support/SyntheticLibrary.h"
#include "support/SyntheticText.h"

namespace velorin::test {
namespace {

using sqlite::Writer;
using std::chrono::milliseconds;

constexpr int kPlaylists = 20;
constexpr double kHistoryMeanDays = 500;
constexpr double kHistoryLongestDays = 15 * 365;

/// On compilations the track's artist is not the album's, but for one track in ten.
void inviteGuests(Writer& writer) {
  writer.run(R"(
UPDATE tracks
SET artistId = (SELECT id FROM artists
                WHERE id > (tracks.id * 7919) % (SELECT MAX(id) FROM artists) LIMIT 1)
WHERE id % 10 != 0
  AND albumId IN (SELECT albums.id FROM albums JOIN artists ON artists.id = albums.artistId
                  WHERE artists.name = 'Various Artists'))");
  writer.run(R"(
UPDATE tracks_fts
SET artistName = (SELECT artists.name FROM tracks JOIN artists ON artists.id = tracks.artistId
                  WHERE tracks.id = tracks_fts.rowid)
WHERE rowid IN (SELECT tracks.id FROM tracks JOIN albums ON albums.id = tracks.albumId
                WHERE albums.artistId != tracks.artistId))");
}

struct Play {
  milliseconds ago;
  std::int64_t track;
  float duration;
  bool skipped;
};

/// One row for each play and skip that the tracks count, in the order of time.
void writeHistory(Writer& writer, const SyntheticSpec& spec) {
  Random random(spec.seed + 1);
  std::vector<Play> plays;
  writer.each(
      "SELECT id, totalPlays, totalSkips, duration FROM tracks", [&](const sqlite::Row& row) {
        const auto heard = row.get<int>(1);
        const auto all = heard + row.get<int>(2);
        for (int i = 0; i < all; ++i) {
          const double days = std::min(random.exponential(kHistoryMeanDays), kHistoryLongestDays);
          const double part = i < heard ? 0.5 + random.unit() / 2 : 0.1 * random.unit();
          plays.push_back({milliseconds(static_cast<std::int64_t>(days * 86'400'000)),
                           row.get<std::int64_t>(0), static_cast<float>(part * row.get<double>(3)),
                           i >= heard});
        }
      });
  std::ranges::sort(plays, std::greater(), &Play::ago);
  for (const Play& play : plays) {
    writer.run(
        "INSERT INTO playbackHistory (trackId, playedAt, duration, skipped) VALUES "
        "(?, ?, ?, ?)",
        play.track, spec.now - play.ago, play.duration, play.skipped);
  }
}

/// Of 1 to 2,000 tracks; two are smart ones, one is hidden.
void writePlaylists(Writer& writer, const SyntheticSpec& spec) {
  Random random(spec.seed + 2);
  for (int i = 0; i < kPlaylists; ++i) {
    const bool isSmart = i >= kPlaylists - 2;
    std::optional<std::string> rules;
    if (isSmart) rules = R"({"matchMode":"all","rules":[],"limit":50,"sortAscending":true})";
    const std::string name = someWords(random, someScript(random), 2) + " " + std::to_string(i);
    writer.run(
        "INSERT INTO playlists (name, isSmartPlaylist, rulesJSON, createdAt, updatedAt, "
        "isHidden) VALUES (?, ?, ?, ?, ?, ?)",
        name, isSmart, rules, spec.now, spec.now, i == 3);
    if (isSmart) continue;
    const auto playlist = writer.lastInsertedId();
    int position = 0;
    for (std::size_t wanted = random.zipf(2000) + 1; wanted > 0; --wanted) {
      position += static_cast<int>(
          writer.run("INSERT OR IGNORE INTO playlist_tracks (playlistId, trackId, position, "
                     "createdAt) VALUES (?, ?, ?, ?)",
                     playlist, 1 + random.below(spec.tracks), position, spec.now));
    }
  }
}

void writePins(Writer& writer, const SyntheticSpec& spec) {
  struct Pin {
    const char* type;
    const char* reference;
  };
  static constexpr std::array<Pin, 5> kPins{
      {{"song", "1"}, {"album", "1"}, {"artist", "1"}, {"genre", "Rock"}, {"playlist", "1"}}};
  for (std::size_t i = 0; i < kPins.size(); ++i) {
    writer.run(
        "INSERT INTO pinnedItems (type, referenceId, position, createdAt) VALUES "
        "(?, ?, ?, ?)",
        kPins[i].type, kPins[i].reference, i, spec.now);
  }
}

}  // namespace

void SyntheticLibrary::fill(const DatabaseHandle& database,
                            const std::function<void(std::size_t)>& progress) const {
  LibraryImport import(database);
  std::size_t done = 0;
  forEachBatch(500, [&](const std::vector<ScannedItem>& items) {
    import.insertBatch(items);
    done += items.size();
    if (progress) progress(done);
  });
  database.write([&](Writer& writer) {
    bool wasScanned = false;  // all but the first
    for (const std::string& folder : musicFolders()) {
      writer.run("INSERT INTO musicFolders (path, lastScanned) VALUES (?, ?)", folder,
                 wasScanned ? std::optional(_spec.now) : std::nullopt);
      wasScanned = true;
    }
    inviteGuests(writer);
    writePlaylists(writer, _spec);
    writePins(writer, _spec);
  });
  database.write([&](Writer& writer) { writeHistory(writer, _spec); });
}

}  // namespace velorin::test
