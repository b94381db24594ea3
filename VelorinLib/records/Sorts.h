// How a listing is sorted: a column and a direction, kept as JSON in the preference store.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velorin {

enum class TrackSortColumn {
  title,
  artist,
  album,
  composer,
  genre,
  year,
  duration,
  format,
  sampleRate,
  rating,
  plays,
};
enum class AlbumSortColumn { title, artist, year };
enum class ArtistSortColumn { name, albumCount, songCount };
enum class CategorySortColumn { name, songCount };  ///< of genres and composers

template <class Column>
struct Sort {
  Column column{};
  bool ascending = true;

  bool operator==(const Sort&) const = default;
};
using TrackSort = Sort<TrackSortColumn>;
using AlbumSort = Sort<AlbumSortColumn>;
using ArtistSort = Sort<ArtistSortColumn>;
using CategorySort = Sort<CategorySortColumn>;

/// The name of the case.
std::string_view rawValue(TrackSortColumn column) noexcept;
std::string_view rawValue(AlbumSortColumn column) noexcept;
std::string_view rawValue(ArtistSortColumn column) noexcept;
std::string_view rawValue(CategorySortColumn column) noexcept;

/// {"column":"title","ascending":true}
std::string toJSON(const TrackSort& sort);
std::string toJSON(const AlbumSort& sort);
std::string toJSON(const ArtistSort& sort);
std::string toJSON(const CategorySort& sort);

/// The sort that such a text stands for: Sort is one of the four. Empty for any other text.
template <class Sort>
std::optional<Sort> sortFromJSON(std::string_view json);

}  // namespace velorin
