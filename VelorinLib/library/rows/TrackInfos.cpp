#include "library/rows/TrackInfos.h"

#include <unordered_map>

namespace velorin::rows {

TrackInfo trackInfoOf(const sqlite::Row& row) {
  TrackInfo info;
  sqlite::RowReader reader(row);
  reader >> info.track >> info.album >> info.artist;
  return info;
}

std::vector<TrackInfo> trackInfosInOrder(sqlite::Reader& reader,
                                         const std::vector<std::int64_t>& ids) {
  std::vector<TrackInfo> ordered;
  ordered.reserve(ids.size());
  sqlite::forEachSlice(ids, [&](std::span<const std::int64_t> slice) {
    std::vector<TrackInfo> found = trackInfos(
        reader, "\nWHERE tracks.id IN (" + sqlite::placeholders(slice.size()) + ")", slice);
    std::unordered_map<std::int64_t, const TrackInfo*> byId;
    for (const TrackInfo& info : found) byId.emplace(*info.track.id, &info);
    for (const std::int64_t id : slice) {
      if (const auto hit = byId.find(id); hit != byId.end()) ordered.push_back(*hit->second);
    }
  });
  return ordered;
}

}  // namespace velorin::rows
