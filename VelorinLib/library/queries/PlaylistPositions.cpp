#include "library/queries/PlaylistPositions.h"

#include <algorithm>

namespace velorin {
namespace {

constexpr const char* kSetPosition = "UPDATE playlist_tracks SET position = ? WHERE id = ?";

}  // namespace

std::vector<PlaylistEntry> playlistEntries(sqlite::Reader& reader, std::int64_t playlistId,
                                           std::int64_t from) {
  std::vector<PlaylistEntry> entries;
  reader.each(R"(
SELECT id, trackId, position
FROM playlist_tracks
WHERE playlistId = ? AND position >= ?
ORDER BY position)",
              [&](const sqlite::Row& row) {
                PlaylistEntry& entry = entries.emplace_back();
                sqlite::RowReader(row) >> entry.id >> entry.trackId >> entry.position;
              },
              playlistId, from);
  return entries;
}

void renumber(sqlite::Writer& writer, std::int64_t playlistId,
              const std::vector<PlaylistEntry>& entries, std::int64_t first) {
  struct Move {
    std::int64_t id;
    std::int64_t from;
    std::int64_t to;
  };
  std::vector<Move> moves;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const std::int64_t to = first + static_cast<std::int64_t>(i);
    if (entries[i].position != to) moves.push_back({entries[i].id, entries[i].position, to});
  }
  // Where all go down, taken by their new places, each finds its place empty: who had it has gone
  // further down. Else all step aside first, beyond every position of the playlist, old and new.
  const bool closeUp =
      std::all_of(moves.begin(), moves.end(), [](const Move& move) { return move.to < move.from; });
  if (!closeUp) {
    std::int64_t aside =
        writer
            .first<std::int64_t>("SELECT MAX(position) FROM playlist_tracks WHERE playlistId = ?",
                                 playlistId)
            .value_or(0);
    aside = std::max(aside, first + static_cast<std::int64_t>(entries.size()));
    for (const Move& move : moves) writer.run(kSetPosition, ++aside, move.id);
  }
  for (const Move& move : moves) writer.run(kSetPosition, move.to, move.id);
}

}  // namespace velorin
