#include "records/Sorts.h"

#include <array>
#include <cstddef>
#include <nlohmann/json.hpp>

namespace velorin {
namespace {

// In the order of the enumerations.
constexpr std::array<std::string_view, 11> kTrackColumns{
    "title",    "artist", "album",      "composer", "genre", "year",
    "duration", "format", "sampleRate", "rating",   "plays"};
constexpr std::array<std::string_view, 3> kAlbumColumns{"title", "artist", "year"};
constexpr std::array<std::string_view, 3> kArtistColumns{"name", "albumCount", "songCount"};
constexpr std::array<std::string_view, 2> kCategoryColumns{"name", "songCount"};

constexpr const auto& namesOf(TrackSortColumn) {
  return kTrackColumns;
}
constexpr const auto& namesOf(AlbumSortColumn) {
  return kAlbumColumns;
}
constexpr const auto& namesOf(ArtistSortColumn) {
  return kArtistColumns;
}
constexpr const auto& namesOf(CategorySortColumn) {
  return kCategoryColumns;
}

template <class Column>
std::string_view nameOf(Column column) noexcept {
  const auto& names = namesOf(column);
  const auto at = static_cast<std::size_t>(column);
  return at < names.size() ? names[at] : std::string_view{};
}

template <class Column>
std::string written(const Sort<Column>& sort) {
  nlohmann::ordered_json object;
  object["column"] = rawValue(sort.column);
  object["ascending"] = sort.ascending;
  return object.dump();
}

template <class Column>
std::optional<Sort<Column>> read(std::string_view text) {
  const auto object = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!object.is_object() || !object.contains("column") || !object.contains("ascending")) {
    return std::nullopt;
  }
  const auto& column = object["column"];
  const auto& ascending = object["ascending"];
  if (!column.is_string() || !ascending.is_boolean()) return std::nullopt;
  const auto& names = namesOf(Column{});
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (column == names[i]) return Sort<Column>{static_cast<Column>(i), ascending.get<bool>()};
  }
  return std::nullopt;
}

}  // namespace

std::string_view rawValue(TrackSortColumn column) noexcept {
  return nameOf(column);
}
std::string_view rawValue(AlbumSortColumn column) noexcept {
  return nameOf(column);
}
std::string_view rawValue(ArtistSortColumn column) noexcept {
  return nameOf(column);
}
std::string_view rawValue(CategorySortColumn column) noexcept {
  return nameOf(column);
}

std::string toJSON(const TrackSort& sort) {
  return written(sort);
}
std::string toJSON(const AlbumSort& sort) {
  return written(sort);
}
std::string toJSON(const ArtistSort& sort) {
  return written(sort);
}
std::string toJSON(const CategorySort& sort) {
  return written(sort);
}

template <>
std::optional<TrackSort> sortFromJSON(std::string_view json) {
  return read<TrackSortColumn>(json);
}
template <>
std::optional<AlbumSort> sortFromJSON(std::string_view json) {
  return read<AlbumSortColumn>(json);
}
template <>
std::optional<ArtistSort> sortFromJSON(std::string_view json) {
  return read<ArtistSortColumn>(json);
}
template <>
std::optional<CategorySort> sortFromJSON(std::string_view json) {
  return read<CategorySortColumn>(json);
}

}  // namespace velorin
