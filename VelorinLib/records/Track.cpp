#include "records/Track.h"

#include <nlohmann/json.hpp>

namespace velorin {

std::string toJSON(const std::vector<TrackBookmark>& bookmarks) {
  auto list = nlohmann::ordered_json::array();
  for (const TrackBookmark& each : bookmarks) {
    nlohmann::ordered_json object;
    object["id"] = each.id;
    object["position"] = each.position;
    if (each.label) object["label"] = *each.label;
    object["color"] = each.color;
    list.push_back(std::move(object));
  }
  return list.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::optional<std::vector<TrackBookmark>> bookmarksFromJSON(std::string_view json) {
  const auto list = nlohmann::json::parse(json, nullptr, /*allow_exceptions=*/false);
  if (!list.is_array()) return std::nullopt;
  std::vector<TrackBookmark> bookmarks;
  for (const auto& object : list) {
    const auto field = [&](const char* key) {
      return object.is_object() && object.contains(key) ? object[key] : nlohmann::json();
    };
    const auto id = field("id");
    const auto position = field("position");
    const auto label = field("label");
    const auto color = field("color");
    if (!id.is_string() || !position.is_number() || !color.is_string()) return std::nullopt;
    if (!label.is_string() && !label.is_null()) return std::nullopt;
    TrackBookmark& bookmark = bookmarks.emplace_back();
    bookmark.id = id.get<std::string>();
    bookmark.position = position.get<double>();
    if (label.is_string()) bookmark.label = label.get<std::string>();
    bookmark.color = color.get<std::string>();
  }
  return bookmarks;
}

}  // namespace velorin
