#include "platform/files/RemountURLs.h"

#include "foundation/Mutex.h"

namespace velorin::remountURLs {
namespace {

/// Held from the reading of the map to its writing.
Mutex& storeMutex() {
  static auto* const mutex = new Mutex;
  return *mutex;
}

PreferenceMap mapOf(const Preferences& preferences) {
  return preferences.getMap(kKey).value_or(PreferenceMap{});
}

}  // namespace

std::string of(const Preferences& preferences, const std::string& place) {
  const PreferenceMap map = mapOf(preferences);
  const auto found = map.find(place);
  const auto* const url =
      found == map.end() ? nullptr : std::get_if<std::string>(&found->second.value);
  return url ? *url : std::string();
}

std::vector<std::string> folders(const Preferences& preferences) {
  std::vector<std::string> paths;
  for (const auto& [place, url] : mapOf(preferences)) {
    if (place.starts_with('/')) paths.push_back(place);
  }
  return paths;
}

bool remember(Preferences& preferences, const std::vector<std::string>& places,
              const std::string& url) {
  const MutexLock hold(storeMutex());
  PreferenceMap map = mapOf(preferences);
  const PreferenceValue value{url};
  const auto known = map.find(places.front());
  if (known != map.end() && known->second == value) return false;
  for (const std::string& place : places) {
    if (!place.empty()) map.insert_or_assign(place, value);
  }
  preferences.setMap(kKey, std::move(map));
  return true;
}

void forget(Preferences& preferences, const std::string& place) {
  const MutexLock hold(storeMutex());
  PreferenceMap map = mapOf(preferences);
  if (map.erase(place) > 0) preferences.setMap(kKey, std::move(map));
}

void move(Preferences& preferences, const std::string& from, const std::string& to) {
  const MutexLock hold(storeMutex());
  PreferenceMap map = mapOf(preferences);
  auto entry = map.extract(from);
  if (entry.empty()) return;
  map.insert_or_assign(to, std::move(entry.mapped()));
  preferences.setMap(kKey, std::move(map));
}

}  // namespace velorin::remountURLs
