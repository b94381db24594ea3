#include "library/listening/TrackSounds.h"

#include <algorithm>
#include <limits>

#include "library/listening/DepartedTracks.h"

namespace velorin {
namespace {

// A walk in steps: other work of the database gets its turn between them.
constexpr std::int64_t kStep = 2000;

// Of a step, of which a call takes so many: a large library is gone through by and by.
constexpr int kSteps = 10;

// The ids above one of tracks that the listener marked or played, by their index.
constexpr const char* kMarked = R"(
SELECT id FROM tracks INDEXED BY idx_tracks_listened
WHERE (totalPlays > 0 OR totalSkips > 0 OR rating IS NOT NULL OR bookmarks IS NOT NULL) AND id > ?
ORDER BY id LIMIT ?)";

// Those of a range whose sound should be known for another reason.
constexpr const char* kOthers[] = {
    "SELECT trackId FROM playlist_tracks WHERE trackId > ? AND trackId <= ?",
    "SELECT trackId FROM favoriteTracks WHERE trackId > ? AND trackId <= ?",
    R"(
SELECT CAST(referenceId AS INTEGER) AS id FROM pinnedItems
WHERE type = 'song' AND id > ? AND id <= ?)",
};

constexpr std::int64_t kNoLimit = std::numeric_limits<std::int64_t>::max();

}  // namespace

void TrackSounds::read(sqlite::RowReader& columns, Subject& subject) {
  int state = 0;
  columns >> subject.trackId >> subject.filePath >> subject.duration >> subject.fileSize >>
      subject.lastModified >> subject.soundHash >> state;
  subject.state = static_cast<State>(state);
}

std::vector<TrackSounds::Subject> TrackSounds::outdated(std::size_t limit) const {
  return _database.read([&](sqlite::Reader& reader) {
    std::vector<Subject> found;
    reader.each(
        fmt::format(R"(
SELECT {}
FROM trackSounds s INDEXED BY idx_trackSounds_outdated CROSS JOIN tracks t ON t.id = s.trackId
WHERE s.fileSize IS NULL AND (t.fileSize IS NOT NULL OR s.lastModified IS NOT t.lastModified)
ORDER BY s.trackId LIMIT ?)",
                    kColumns),
        [&](const sqlite::Row& row) {
          sqlite::RowReader columns(row);
          read(columns, found.emplace_back());
        },
        limit);
    return found;
  });
}

TrackSounds::Unknown TrackSounds::unknown(std::int64_t after, std::size_t limit) const {
  Unknown found;
  found.upTo = after;
  for (int step = 0; step < kSteps && found.tracks.size() < limit; ++step) {
    _database.read([&](sqlite::Reader& reader) {
      addUnknown(reader, found, limit);
      return 0;
    });
    if (found.upTo == 0) break;
  }
  return found;
}

void TrackSounds::addUnknown(sqlite::Reader& reader, Unknown& found, std::size_t limit) {
  auto ids = reader.column<std::int64_t>(kMarked, found.upTo, kStep);
  const std::int64_t end = static_cast<std::int64_t>(ids.size()) == kStep ? ids.back() : kNoLimit;
  for (const char* source : kOthers) {
    const auto others = reader.column<std::int64_t>(source, found.upTo, end);
    ids.insert(ids.end(), others.begin(), others.end());
  }
  std::ranges::sort(ids);
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  sqlite::forEachSlice(ids, [&](std::span<const std::int64_t> slice) {
    reader.each(
        fmt::format(R"(
SELECT {}
FROM tracks t LEFT JOIN trackSounds s ON s.trackId = t.id
WHERE t.id IN ({}) AND s.trackId IS NULL
ORDER BY t.id)",
                    kColumns, sqlite::placeholders(slice.size())),
        [&](const sqlite::Row& row) {
          if (found.tracks.size() == limit) return;
          sqlite::RowReader columns(row);
          read(columns, found.tracks.emplace_back());
        },
        slice);
  });
  const bool isFull = found.tracks.size() == limit;
  found.upTo = isFull ? found.tracks.back().trackId : end == kNoLimit ? 0 : end;
}

std::optional<std::string> TrackSounds::learn(const Subject& subject) {
  if (subject.state == State::current) return subject.soundHash.value_or("");
  const auto hash = decode(subject.filePath);
  if (!hash) return hash;
  _database.write([&](sqlite::Writer& writer) {
    const auto known = writer.first<std::optional<std::string>>(
        "SELECT soundHash FROM trackSounds WHERE trackId = ?", subject.trackId);
    const bool isOther = known && *known && !hash->empty() && **known != *hash;
    if (isOther) parkBesideRow(writer, subject.trackId);
    // A file that cannot be decoded any more keeps what was known of it. Of a row that has changed
    // meanwhile nothing is known.
    writer.run(R"(
INSERT OR REPLACE INTO trackSounds (trackId, soundHash, duration, fileSize, lastModified)
SELECT t.id, COALESCE(NULLIF(?, ''), s.soundHash), t.duration, t.fileSize, t.lastModified
FROM tracks t LEFT JOIN trackSounds s ON s.trackId = t.id
WHERE t.id = ? AND t.fileSize IS ? AND t.lastModified IS ?)",
               hash, subject.trackId, subject.fileSize, subject.lastModified);
  });
  return hash;
}

std::optional<std::string> TrackSounds::decode(const std::string& path) {
  if (path != _lastPath) {
    _lastHash = _hashSound(path);
    _lastPath = path;
    ++_decoded;
  }
  return _lastHash;
}

}  // namespace velorin
