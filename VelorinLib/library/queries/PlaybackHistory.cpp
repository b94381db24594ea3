#include "library/queries/PlaybackHistory.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "foundation/EventBus.h"
#include "library/listening/DepartedTracks.h"
#include "library/queries/LocalHours.h"
#include "library/queries/PlayCounts.h"
#include "library/rows/TrackInfos.h"
#include "records/Events.h"

namespace velorin {
namespace {

// A thousand years: before the first play, and still a date that SQLite knows.
constexpr int kAllDays = 365'000;

/// The moment so many days ago, as text of whole seconds, which compares with what the history
/// holds.
std::string daysBefore(sqlite::Reader& reader, int days, sqlite::TimePoint now) {
  return *reader.first<std::string>("SELECT datetime(?, '-' || ? || ' days')", now,
                                    std::clamp(days, 0, kAllDays));
}

std::vector<std::int64_t> playsSince(sqlite::Reader& reader, const std::string& moment) {
  return reader.column<std::int64_t>(R"(
SELECT trackId
FROM playbackHistory
WHERE playedAt >= ? AND skipped = 0)",
                                     moment);
}

/// One walk over the table: the index would lead to nearly all of its rows.
std::vector<std::int64_t> playsBefore(sqlite::Reader& reader, const std::string& moment) {
  return reader.column<std::int64_t>(R"(
SELECT trackId
FROM playbackHistory
WHERE +playedAt < ? AND skipped = 0)",
                                     moment);
}

std::vector<std::int64_t> playsByHour(sqlite::Reader& reader, int from, int to) {
  std::vector<std::int64_t> plays;
  LocalHours hours;
  reader.each(R"(
SELECT trackId, playedAt
FROM playbackHistory
WHERE skipped = 0)",
              [&](const sqlite::Row& row) {
                const auto hour = hours.of(row.get<std::string_view>(1));
                if (hour && isInHours(*hour, from, to)) plays.push_back(row.get<std::int64_t>(0));
              });
  return plays;
}

std::vector<TrackInfo> trackInfosOf(sqlite::Reader& reader, const std::vector<TrackPlays>& top) {
  std::vector<std::int64_t> ids;
  ids.reserve(top.size());
  for (const TrackPlays& each : top) ids.push_back(each.trackId);
  return rows::trackInfosInOrder(reader, ids);
}

/// The different values of the first column, in the order of their first rows. It reads no further
/// than it must: the newest few of a long history lie close together.
std::vector<std::int64_t> firstDistinct(sqlite::Cursor rows, std::int64_t limit) {
  std::vector<std::int64_t> values;
  std::unordered_set<std::int64_t> seen;
  while ((limit < 0 || static_cast<std::int64_t>(values.size()) < limit) && rows.next()) {
    const auto value = rows.get<std::int64_t>(0);
    if (seen.insert(value).second) values.push_back(value);
  }
  return values;
}

const std::string kAlbumInfo = "SELECT " + rows::kAlbumColumns + ", " + rows::kArtistColumns +
                               ", COUNT(DISTINCT tracks.id), COALESCE(SUM(tracks.duration), 0)\n"
                               "FROM albums\n"
                               "JOIN artists ON artists.id = albums.artistId\n"
                               "JOIN tracks ON tracks.albumId = albums.id\n";

/// One album a query, whose `tail` names it by its one parameter: they are few, and so each is
/// reached by its indexes.
std::vector<AlbumInfo> albumInfos(sqlite::Reader& reader, const std::vector<std::int64_t>& ids,
                                  std::string_view tail) {
  const std::string sql = kAlbumInfo + std::string(tail);
  std::vector<AlbumInfo> infos;
  for (const std::int64_t id : ids) {
    reader.each(
        sql,
        [&](const sqlite::Row& row) {
          AlbumInfo& info = infos.emplace_back();
          sqlite::RowReader columns(row);
          columns >> info.album >> info.artist >> info.trackCount >> info.totalDuration;
          info.format = info.album.worstFormat;
        },
        id);
  }
  return infos;
}

}  // namespace

void PlaybackHistory::recordPlay(std::int64_t trackId, TimePoint playedAt, double duration,
                                 bool skipped) {
  const double heard = std::isfinite(duration) ? std::max(duration, 0.0) : 0.0;
  _database.write([&](sqlite::Writer& writer) {
    const std::int64_t id = presentId(writer, trackId);
    if (addToParked(writer, id, playedAt, heard, skipped)) return;
    writer.run(R"(
INSERT INTO playbackHistory (trackId, playedAt, duration, skipped)
VALUES (?, ?, ?, ?))",
               id, playedAt, heard, skipped);
    writer.run(skipped ? "UPDATE tracks SET totalSkips = totalSkips + 1 WHERE id = ?"
                       : "UPDATE tracks SET totalPlays = totalPlays + 1 WHERE id = ?",
               id);
  });
  if (_events != nullptr) _events->postOnMain(PlaybackHistoryDidUpdate{});
}

std::vector<TrackInfo> PlaybackHistory::fetchHistory(std::int64_t limit,
                                                     std::int64_t offset) const {
  return _database.read([&](sqlite::Reader& reader) {
    return rows::trackInfosInOrder(reader, reader.column<std::int64_t>(R"(
SELECT trackId FROM (
    SELECT trackId, playedAt, id FROM playbackHistory
    ORDER BY playedAt DESC, id DESC LIMIT ? OFFSET ?
) ORDER BY playedAt ASC, id ASC)",
                                                                       limit, offset));
  });
}

std::vector<TrackInfo> PlaybackHistory::fetchRecentlyPlayed(std::int64_t limit) const {
  return _database.read([&](sqlite::Reader& reader) {
    return rows::trackInfosInOrder(reader, firstDistinct(reader.query(R"(
SELECT trackId
FROM playbackHistory
ORDER BY playedAt DESC, id DESC)"),
                                                         limit));
  });
}

std::vector<TrackInfo> PlaybackHistory::fetchMostPlayed(int days, std::int64_t limit,
                                                        TimePoint now) const {
  return fetchOnRepeat(days, 1, limit, now);
}

std::vector<TopTrack> PlaybackHistory::fetchTopTracks(int days, std::int64_t limit,
                                                      TimePoint now) const {
  return _database.read([&](sqlite::Reader& reader) {
    const auto top =
        mostPlayed(countPlays(playsSince(reader, daysBefore(reader, days, now))), limit);
    std::vector<TopTrack> tracks;
    auto plays = top.begin();
    for (TrackInfo& info : trackInfosOf(reader, top)) {
      // A track without its album or artist has no info.
      while (plays->trackId != info.track.id) ++plays;
      tracks.push_back({std::move(info), plays->plays});
    }
    return tracks;
  });
}

std::vector<TrackInfo> PlaybackHistory::fetchOnRepeat(int days, int minPlays, std::int64_t limit,
                                                      TimePoint now) const {
  return _database.read([&](sqlite::Reader& reader) {
    const auto played = countPlays(playsSince(reader, daysBefore(reader, days, now)));
    return trackInfosOf(reader, mostPlayed(played, limit, minPlays));
  });
}

std::vector<TrackInfo> PlaybackHistory::fetchForgotten(int days, int minPlays, std::int64_t limit,
                                                       TimePoint now) const {
  return _database.read([&](sqlite::Reader& reader) {
    const std::string since = daysBefore(reader, days, now);
    auto recent = playsSince(reader, since);
    std::sort(recent.begin(), recent.end());
    auto played = countPlays(playsBefore(reader, since));
    std::erase_if(played, [&](const TrackPlays& track) {
      return std::binary_search(recent.begin(), recent.end(), track.trackId);
    });
    return trackInfosOf(reader, mostPlayed(std::move(played), limit, minPlays));
  });
}

std::vector<TrackInfo> PlaybackHistory::fetchByHour(int from, int to, std::int64_t limit) const {
  return _database.read([&](sqlite::Reader& reader) {
    return trackInfosOf(reader, mostPlayed(countPlays(playsByHour(reader, from, to)), limit));
  });
}

std::int64_t PlaybackHistory::countByHour(int from, int to) const {
  return _database.read([&](sqlite::Reader& reader) {
    return static_cast<std::int64_t>(countPlays(playsByHour(reader, from, to)).size());
  });
}

std::unordered_map<std::int64_t, TrackPlayStats> PlaybackHistory::fetchPlayStats(
    const std::vector<std::int64_t>& ids) const {
  return _database.read([&](sqlite::Reader& reader) {
    std::unordered_map<std::int64_t, TrackPlayStats> stats;
    sqlite::forEachSlice(ids, [&](std::span<const std::int64_t> slice) {
      reader.each(
          fmt::format(R"(
SELECT trackId, COUNT(*), SUM(CASE WHEN skipped = 1 THEN 1 ELSE 0 END), MAX(playedAt)
FROM playbackHistory
WHERE trackId IN ({})
GROUP BY trackId)",
                      sqlite::placeholders(slice.size())),
          [&](const sqlite::Row& row) {
            std::int64_t id = 0;
            TrackPlayStats each;
            sqlite::RowReader(row) >> id >> each.playCount >> each.skipCount >> each.lastPlayedAt;
            stats.emplace(id, each);
          },
          slice);
    });
    return stats;
  });
}

std::vector<TrackInfo> PlaybackHistory::fetchUnplayed(std::int64_t limit) const {
  return _database.read([&](sqlite::Reader& reader) {
    return rows::trackInfos(reader, R"(
WHERE NOT EXISTS (
    SELECT 1 FROM playbackHistory WHERE trackId = tracks.id AND skipped = 0
)
ORDER BY tracks.lastModified DESC, tracks.id DESC
LIMIT ?)",
                            limit);
  });
}

std::vector<AlbumInfo> PlaybackHistory::fetchRecentAlbums(std::int64_t limit) const {
  return _database.read([&](sqlite::Reader& reader) {
    // Ids grow as tracks come in, and a track has one album.
    const auto ids = firstDistinct(reader.query(R"(
SELECT tracks.albumId
FROM tracks
JOIN albums ON albums.id = tracks.albumId
JOIN artists ON artists.id = albums.artistId
ORDER BY tracks.id DESC)"),
                                   limit);
    return albumInfos(reader, ids, "WHERE albums.id = ?\nGROUP BY albums.id");
  });
}

std::vector<AlbumInfo> PlaybackHistory::fetchRecentlyPlayedAlbums(std::int64_t limit) const {
  return _database.read([&](sqlite::Reader& reader) {
    const auto ids = firstDistinct(reader.query(R"(
SELECT tracks.albumId
FROM playbackHistory
JOIN tracks ON tracks.id = playbackHistory.trackId
JOIN albums ON albums.id = tracks.albumId
JOIN artists ON artists.id = albums.artistId
ORDER BY playbackHistory.playedAt DESC, playbackHistory.id DESC)"),
                                   limit);
    return albumInfos(reader, ids, R"(
JOIN playbackHistory ON playbackHistory.trackId = tracks.id
WHERE albums.id = ?
GROUP BY albums.id)");
  });
}

void PlaybackHistory::setRating(std::int64_t trackId, std::optional<int> rating) {
  _database.write([&](sqlite::Writer& writer) {
    writer.run("UPDATE tracks SET rating = ? WHERE id = ?", rating, trackId);
  });
}

}  // namespace velorin
