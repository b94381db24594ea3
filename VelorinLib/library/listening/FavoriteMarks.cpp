#include "library/listening/FavoriteMarks.h"

#include <algorithm>
#include <chrono>
#include <set>
#include <unordered_set>

#include "foundation/Preferences.h"
#include "library/listening/DepartedTracks.h"

namespace velorin {
namespace {

constexpr const char* kFollowedUpTo = "favoriteTrackIdsFollowedUpTo";

// Who plays a track that came back may still call it by its old id.
constexpr std::chrono::hours kRemembered{24};

struct Succession {
  std::int64_t id = 0;
  std::int64_t oldId = 0;
  std::int64_t newId = 0;
};

std::set<std::int64_t> favorites(const Preferences& preferences) {
  std::set<std::int64_t> ids;
  for (const PreferenceValue& each :
       preferences.getList(kFavoriteTrackIds).value_or(PreferenceList{})) {
    if (const auto* id = std::get_if<std::int64_t>(&each.value)) ids.insert(*id);
  }
  return ids;
}

/// The list as it is after these steps, each taken after the one before.
PreferenceList followed(const PreferenceList& list, const std::vector<Succession>& successions) {
  // Which entry stands for an id by now: there are many steps and perhaps many entries.
  std::unordered_map<std::int64_t, std::vector<std::size_t>> entries;
  PreferenceList result = list;
  for (std::size_t i = 0; i < result.size(); ++i) {
    if (const auto* id = std::get_if<std::int64_t>(&result[i].value)) entries[*id].push_back(i);
  }
  for (const Succession& step : successions) {
    const auto moving = entries.extract(step.oldId);
    if (!moving) continue;
    auto& target = entries[step.newId];
    for (const std::size_t i : moving.mapped()) {
      result[i].value = step.newId;
      target.push_back(i);
    }
  }
  std::unordered_set<std::int64_t> seen;
  std::erase_if(result, [&](const PreferenceValue& each) {
    const auto* id = std::get_if<std::int64_t>(&each.value);
    return id && (*id == kNoTrack || !seen.insert(*id).second);
  });
  return result;
}

}  // namespace

void noteFavorites(const DatabaseHandle& database, const Preferences& preferences) {
  const auto marked = favorites(preferences);
  const auto noted = database.read([](sqlite::Reader& reader) {
    return reader.column<std::int64_t>("SELECT trackId FROM favoriteTracks ORDER BY trackId");
  });
  if (std::ranges::equal(marked, noted)) return;
  database.write([&](sqlite::Writer& writer) {
    writer.run("DELETE FROM favoriteTracks");
    for (const std::int64_t id : marked) {
      writer.run("INSERT INTO favoriteTracks (trackId) VALUES (?)", id);
    }
  });
}

void followSuccessions(const DatabaseHandle& database, Preferences& preferences) {
  const auto upTo = preferences.getInt(kFollowedUpTo).value_or(0);
  std::vector<Succession> successions;
  database.read([&](sqlite::Reader& reader) {
    reader.each(
        "SELECT id, oldId, newId FROM trackSuccessions WHERE id > ? ORDER BY id",
        [&](const sqlite::Row& row) {
          Succession& each = successions.emplace_back();
          sqlite::RowReader(row) >> each.id >> each.oldId >> each.newId;
        },
        upTo);
    return 0;
  });
  if (successions.empty()) return;
  if (const auto list = preferences.getList(kFavoriteTrackIds)) {
    preferences.setList(kFavoriteTrackIds, followed(*list, successions));
  }
  preferences.setInt(kFollowedUpTo, successions.back().id);
  if (!preferences.flush()) return;
  database.write([&](sqlite::Writer& writer) {
    writer.run("DELETE FROM trackSuccessions WHERE id <= ? AND happenedAt < ?",
               successions.back().id, std::chrono::system_clock::now() - kRemembered);
  });
}

}  // namespace velorin
