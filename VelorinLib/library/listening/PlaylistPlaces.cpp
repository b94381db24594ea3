#include "library/listening/PlaylistPlaces.h"

#include <algorithm>
#include <tuple>
#include <unordered_set>

#include "library/queries/PlaylistPositions.h"

namespace velorin {
namespace {

using Place = PlaylistPlaces::Place;

void insert(sqlite::Writer& writer, std::int64_t playlistId, const Place& place) {
  writer.run(R"(
INSERT INTO playlist_tracks (playlistId, trackId, position, createdAt)
VALUES (?, ?, ?, ?))",
             playlistId, place.trackId, place.position, place.createdAt);
}

bool holds(sqlite::Reader& reader, std::int64_t playlistId, std::int64_t trackId) {
  return reader
      .first<int>("SELECT 1 FROM playlist_tracks WHERE playlistId = ? AND trackId = ?", playlistId,
                  trackId)
      .has_value();
}

bool isTaken(sqlite::Reader& reader, std::int64_t playlistId, std::int64_t position) {
  return reader
      .first<int>("SELECT 1 FROM playlist_tracks WHERE playlistId = ? AND position = ?", playlistId,
                  position)
      .has_value();
}

/// Inserts places, which are in order, where others stand: each entry behind moves up so far that
/// there is room, and keeps its position where there is a gap before it.
void squeezeIn(sqlite::Writer& writer, std::int64_t playlistId, std::vector<Place> places) {
  struct Move {
    std::int64_t id;
    std::int64_t to;
  };
  std::vector<Move> moves;
  std::int64_t next = places.front().position;
  auto place = places.begin();
  for (const PlaylistEntry& entry : playlistEntries(writer, playlistId, next)) {
    std::int64_t to = std::max(entry.position, next);
    for (; place != places.end() && place->position <= to; ++place) {
      place->position = std::max(place->position, next);
      next = place->position + 1;
      to = std::max(to, next);
    }
    if (to != entry.position) moves.push_back({entry.id, to});
    next = to + 1;
  }
  for (; place != places.end(); ++place) {
    place->position = std::max(place->position, next);
    next = place->position + 1;
  }
  // All go up, so that from the last to the first each finds its new position empty.
  for (auto move = moves.rbegin(); move != moves.rend(); ++move) {
    writer.run("UPDATE playlist_tracks SET position = ? WHERE id = ?", move->to, move->id);
  }
  for (const Place& each : places) insert(writer, playlistId, each);
}

}  // namespace

void PlaylistPlaces::settle() {
  for (auto& [playlistId, places] : _places) settle(playlistId, places);
  _places.clear();
}

void PlaylistPlaces::settle(std::int64_t playlistId, std::vector<Place>& places) {
  std::ranges::stable_sort(places, {}, &Place::position);
  std::unordered_set<std::int64_t> settled;
  std::vector<Place> crowded;
  for (Place& place : places) {
    if (!settled.insert(place.trackId).second || holds(_writer, playlistId, place.trackId)) {
      continue;
    }
    if (isTaken(_writer, playlistId, place.position)) {
      crowded.push_back(std::move(place));
    } else {
      insert(_writer, playlistId, place);
    }
  }
  if (!crowded.empty()) squeezeIn(_writer, playlistId, std::move(crowded));
}

}  // namespace velorin
