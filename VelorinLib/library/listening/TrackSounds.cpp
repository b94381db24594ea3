#include "library/listening/TrackSounds.h"

#include "library/listening/DepartedTracks.h"

namespace velorin {
namespace {

// A walk in steps: other work of the database gets its turn between them.
constexpr std::int64_t kStep = 2000;

// The ids above one, of tracks whose sound should be known. By their indexes.
constexpr const char* kSources[] = {
    R"(
SELECT id FROM tracks INDEXED BY idx_tracks_listened
WHERE (totalPlays > 0 OR totalSkips > 0 OR rating IS NOT NULL OR bookmarks IS NOT NULL) AND id > ?
ORDER BY id LIMIT ?)",
    "SELECT DISTINCT trackId FROM playlist_tracks WHERE trackId > ? ORDER BY trackId LIMIT ?",
    "SELECT trackId FROM favoriteTracks WHERE trackId > ? ORDER BY trackId LIMIT ?",
    R"(
SELECT CAST(referenceId AS INTEGER) AS id FROM pinnedItems WHERE type = 'song' AND id > ?
ORDER BY id LIMIT ?)",
};

}  // namespace

void TrackSounds::read(sqlite::RowReader& columns, Subject& subject) {
  int state = 0;
  columns >> subject.trackId >> subject.filePath >> subject.duration >> subject.fileSize >>
      subject.lastModified >> subject.soundHash >> state;
  subject.state = static_cast<State>(state);
}

TrackSounds::Listened TrackSounds::listened(std::size_t limit) const {
  Listened found;
  const auto sort = [&](const sqlite::Row& row) {
    Subject subject;
    sqlite::RowReader columns(row);
    read(columns, subject);
    auto& list = subject.state == State::outdated ? found.outdated : found.unknown;
    if (list.size() < limit) list.push_back(std::move(subject));
  };
  for (const char* source : kSources) {
    std::int64_t last = 0;
    for (bool more = true; more;) {
      more = _database.read([&](sqlite::Reader& reader) {
        const auto ids = reader.column<std::int64_t>(source, last, kStep);
        sqlite::forEachSlice(ids, [&](std::span<const std::int64_t> slice) {
          reader.each(fmt::format(R"(
SELECT {}
FROM tracks t LEFT JOIN trackSounds s ON s.trackId = t.id
WHERE t.id IN ({})
  AND (s.trackId IS NULL OR s.fileSize IS NOT t.fileSize OR s.lastModified IS NOT t.lastModified))",
                                  kColumns, sqlite::placeholders(slice.size())),
                      sort, slice);
        });
        if (!ids.empty()) last = ids.back();
        return static_cast<std::int64_t>(ids.size()) == kStep;
      });
    }
  }
  return found;
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
