#include "session/SessionStore.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

#include "foundation/Log.h"
#include "foundation/Preferences.h"

namespace velorin {
namespace {

constexpr const char* kTrackId = "lastTrackId";
constexpr const char* kPosition = "lastTrackPosition";
constexpr const char* kDuration = "lastTrackDuration";
constexpr const char* kQueueIds = "lastQueueIds";
constexpr const char* kQueueIndex = "lastQueueIndex";
constexpr const char* kAutoplayIds = "lastAutoplayIds";
constexpr const char* kIsAutoplay = "lastIsAutoplay";
constexpr const char* kHistoryNavOffset = "lastHistoryNavOffset";
constexpr const char* kExternalPaths = "lastExternalPaths";
constexpr const char* kExternalTrackPath = "lastExternalTrackPath";
constexpr const char* kExternalCueParts = "lastExternalCueParts";
constexpr const char* kExternalTrackCuePart = "lastExternalTrackCuePart";

constexpr const char* kOlderQueueIds = "lastPlaylistIds";
constexpr const char* kOlderQueueIndex = "lastPlaylistIndex";

PreferenceList listOf(const std::vector<std::int64_t>& ids) {
  PreferenceList list(ids.size());
  for (std::size_t i = 0; i < ids.size(); ++i) list[i].value = ids[i];
  return list;
}

PreferenceMap mapOf(const SavedExternal::CuePart& cue) {
  PreferenceMap map{{"start", {cue.start}},
                    {"title", {cue.title}},
                    {"artist", {cue.artist}},
                    {"album", {cue.album}}};
  if (cue.end) map["end"] = {*cue.end};
  if (cue.trackNumber) map["number"] = {std::int64_t{*cue.trackNumber}};
  return map;
}

void setOrRemove(Preferences& preferences, const char* key, std::optional<PreferenceMap> map) {
  map ? preferences.setMap(key, std::move(*map)) : preferences.remove(key);
}

/// What is no number stands as no id: the items behind it keep their places.
std::vector<std::int64_t> idsOf(const std::optional<PreferenceList>& list) {
  std::vector<std::int64_t> ids;
  if (!list) return ids;
  ids.reserve(list->size());
  for (const PreferenceValue& item : *list) {
    const auto* id = std::get_if<std::int64_t>(&item.value);
    ids.push_back(id ? *id : 0);
  }
  return ids;
}

/// A number of a map; nothing for what is none, or is not finite.
std::optional<double> numberIn(const PreferenceMap& map, const char* key) {
  const auto found = map.find(key);
  if (found == map.end()) return std::nullopt;
  if (const auto* whole = std::get_if<std::int64_t>(&found->second.value)) {
    return static_cast<double>(*whole);
  }
  const auto* number = std::get_if<double>(&found->second.value);
  return number && std::isfinite(*number) ? std::optional(*number) : std::nullopt;
}

std::string textIn(const PreferenceMap& map, const char* key) {
  const auto found = map.find(key);
  const auto* text = found == map.end() ? nullptr : std::get_if<std::string>(&found->second.value);
  return text ? *text : std::string();
}

std::optional<SavedExternal::CuePart> cuePartOf(const PreferenceMap& map) {
  const auto start = numberIn(map, "start");
  if (!start || *start < 0) return std::nullopt;
  SavedExternal::CuePart cue{.start = *start,
                             .end = numberIn(map, "end"),
                             .title = textIn(map, "title"),
                             .artist = textIn(map, "artist"),
                             .album = textIn(map, "album"),
                             .trackNumber = {}};
  if (cue.end && *cue.end <= cue.start) cue.end.reset();
  const auto number = numberIn(map, "number");
  if (number && *number >= 0 && *number <= std::numeric_limits<int>::max()) {
    cue.trackNumber = static_cast<int>(*number);
  }
  return cue;
}

std::map<std::size_t, SavedExternal> externalsOf(const PreferenceMap& paths,
                                                 const PreferenceMap& cueParts) {
  std::map<std::size_t, SavedExternal> externals;
  for (const auto& [key, value] : paths) {
    const auto* path = std::get_if<std::string>(&value.value);
    std::size_t index = 0;
    const auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), index);
    if (path == nullptr || error != std::errc{} || end != key.data() + key.size()) continue;
    SavedExternal& external = externals[index];
    external.path = *path;
    const auto cue = cueParts.find(key);
    if (cue == cueParts.end()) continue;
    if (const auto* map = std::get_if<PreferenceMap>(&cue->second.value)) {
      external.cue = cuePartOf(*map);
    }
  }
  return externals;
}

std::string textOf(const std::optional<std::int64_t>& number) {
  return number ? std::to_string(*number) : "nil";
}

}  // namespace

void SessionStore::put(const SavedSession& session, SessionParts parts) {
  if (parts.has(SessionPart::position)) {
    _preferences.setDouble(kPosition, session.position);
    _preferences.setDouble(kDuration, session.duration);
  }
  if (parts.has(SessionPart::place)) putPlace(session);
  if (parts.has(SessionPart::queue)) putQueue(session);
  if (parts.has(SessionPart::autoplay)) {
    _preferences.setList(kAutoplayIds, listOf(session.autoplayIds));
  }
}

void SessionStore::putPlace(const SavedSession& session) {
  _preferences.setInt(kTrackId, session.trackId);
  _preferences.setInt(kQueueIndex, std::max<std::int64_t>(session.queueIndex, 0));
  _preferences.setBool(kIsAutoplay, session.isAutoplay);
  if (session.historyNavOffset) {
    _preferences.setInt(kHistoryNavOffset, *session.historyNavOffset);
  } else {
    _preferences.remove(kHistoryNavOffset);
  }
  const auto& external = session.externalTrack;
  if (external) {
    _preferences.setText(kExternalTrackPath, external->path);
  } else {
    _preferences.remove(kExternalTrackPath);
  }
  std::optional<PreferenceMap> cue;
  if (external && external->cue) cue = mapOf(*external->cue);
  setOrRemove(_preferences, kExternalTrackCuePart, std::move(cue));
}

void SessionStore::putQueue(const SavedSession& session) {
  // With a long queue making the list is the work; mostly it is the one that is stored.
  if (_queueIds != session.queueIds) {
    _preferences.setList(kQueueIds, listOf(session.queueIds));
    _queueIds = session.queueIds;
  }
  std::optional<PreferenceMap> paths;
  std::optional<PreferenceMap> cueParts;
  for (const auto& [index, external] : session.externals) {
    const std::string key = std::to_string(index);
    if (!paths) paths.emplace();
    paths->insert_or_assign(key, PreferenceValue{external.path});
    if (!external.cue) continue;
    if (!cueParts) cueParts.emplace();
    cueParts->insert_or_assign(key, PreferenceValue{mapOf(*external.cue)});
  }
  setOrRemove(_preferences, kExternalPaths, std::move(paths));
  setOrRemove(_preferences, kExternalCueParts, std::move(cueParts));
}

bool SessionStore::save(const std::optional<SavedSession>& session) {
  if (session) {
    log::line("💾 Save: trackId={} pos={:.1f} idx={} queue={} autoplay={} isAutoplay={} histNav={}",
              session->trackId, session->position, session->queueIndex, session->queueIds.size(),
              session->autoplayIds.size(), session->isAutoplay, textOf(session->historyNavOffset));
    _queueIds.reset();
    put(*session, SessionParts::all());
  } else {
    log::line("💾 Save: nothing to save (currentTrack=nil)");
    clear();
  }
  return _preferences.flush();
}

void SessionStore::clear() {
  _queueIds.reset();
  for (const char* key : {kTrackId, kPosition, kDuration, kQueueIds, kQueueIndex, kAutoplayIds,
                          kIsAutoplay, kHistoryNavOffset, kExternalPaths, kExternalTrackPath,
                          kExternalCueParts, kExternalTrackCuePart}) {
    _preferences.remove(key);
  }
}

std::optional<SavedSession> SessionStore::load() const {
  const auto trackId = _preferences.getInt(kTrackId);
  if (!trackId) {
    log::line("📂 Restore: no trackId, skipping");
    return std::nullopt;
  }
  SavedSession session;
  session.trackId = *trackId;
  session.position = _preferences.getDouble(kPosition).value_or(0);
  session.duration = _preferences.getDouble(kDuration).value_or(0);

  auto queue = _preferences.getList(kQueueIds);
  session.queueIds = idsOf(queue ? queue : _preferences.getList(kOlderQueueIds));
  auto index = _preferences.getInt(kQueueIndex);
  if (!index) index = _preferences.getInt(kOlderQueueIndex);
  session.queueIndex = std::max<std::int64_t>(index.value_or(0), 0);
  session.externals = externalsOf(_preferences.getMap(kExternalPaths).value_or(PreferenceMap{}),
                                  _preferences.getMap(kExternalCueParts).value_or(PreferenceMap{}));

  session.autoplayIds = idsOf(_preferences.getList(kAutoplayIds));
  session.isAutoplay = _preferences.getBool(kIsAutoplay).value_or(false);
  session.historyNavOffset = _preferences.getInt(kHistoryNavOffset);
  if (const auto path = _preferences.getText(kExternalTrackPath)) {
    const auto cue = _preferences.getMap(kExternalTrackCuePart);
    session.externalTrack = {*path, cue ? cuePartOf(*cue) : std::nullopt};
  }
  log::line("📂 Restore: trackId={} queue={} idx={} autoplay={} wasAutoplay={} histNavOffset={}",
            session.trackId, session.queueIds.size(), session.queueIndex,
            session.autoplayIds.size(), session.isAutoplay, textOf(session.historyNavOffset));
  return session;
}

}  // namespace velorin
