#include "library/queries/SortText.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

namespace velorin {
namespace {

/// What is sorted by, and the plain column in it, by which a tie-break is known as a repetition.
struct Primary {
  std::string_view expression;
  std::string_view base;
};

// In the order of the columns' enumerations.
constexpr std::array<Primary, 11> kTrackPrimaries{{
    {"tracks.title COLLATE NOCASE", "tracks.title"},
    {"artists.name COLLATE NOCASE", "artists.name"},
    {"albums.title COLLATE NOCASE", "albums.title"},
    {"COALESCE(tracks.composer, '') COLLATE NOCASE", "tracks.composer"},
    {"COALESCE(tracks.genre, '') COLLATE NOCASE", "tracks.genre"},
    {"COALESCE(albums.year, 0)", "albums.year"},
    {"tracks.duration", "tracks.duration"},
    {"COALESCE(tracks.format, '') COLLATE NOCASE", "tracks.format"},
    {"COALESCE(tracks.sampleRate, 0)", "tracks.sampleRate"},
    {"COALESCE(tracks.rating, 0)", "tracks.rating"},
    {"tracks.totalPlays", "tracks.totalPlays"},
}};
constexpr std::array<Primary, 3> kAlbumPrimaries{{
    {"albums.title COLLATE NOCASE", "albums.title"},
    {"artists.name COLLATE NOCASE", "artists.name"},
    {"COALESCE(albums.year, 0)", "albums.year"},
}};

struct TieBreak {
  std::string_view column;
  bool withoutCase = false;
};

// Those of albums are the first three of those of tracks.
constexpr std::array<TieBreak, 6> kTieBreaks{{
    {"artists.name", true},
    {"albums.year"},
    {"albums.title", true},
    {"tracks.discNumber"},
    {"tracks.trackNumber"},
    {"tracks.cueStartTime"},
}};

constexpr std::string_view direction(bool ascending) {
  return ascending ? " ASC" : " DESC";
}

std::string composed(const Primary& primary, bool ascending, std::span<const TieBreak> tieBreaks) {
  std::string text(primary.expression);
  text += direction(ascending);
  for (const TieBreak& each : tieBreaks) {
    if (each.column == primary.base) continue;
    text += ", ";
    text += each.column;
    if (each.withoutCase) text += " COLLATE NOCASE";
  }
  return text;
}

}  // namespace

std::string orderText(const TrackSort& sort) {
  return composed(kTrackPrimaries.at(static_cast<std::size_t>(sort.column)), sort.ascending,
                  kTieBreaks);
}

std::string orderText(const AlbumSort& sort) {
  return composed(kAlbumPrimaries.at(static_cast<std::size_t>(sort.column)), sort.ascending,
                  std::span(kTieBreaks).first(3));
}

std::string orderText(const ArtistSort& sort) {
  constexpr const char* kName = "a.name COLLATE NOCASE";
  const auto way = direction(sort.ascending);
  switch (sort.column) {
    case ArtistSortColumn::albumCount:
      return fmt::format("albumCount{}, {}", way, kName);
    case ArtistSortColumn::songCount:
      return fmt::format("trackCount{}, {}", way, kName);
    case ArtistSortColumn::name:
      break;
  }
  return fmt::format("{}{}", kName, way);
}

std::string orderText(const CategorySort& sort) {
  constexpr const char* kName = "name COLLATE NOCASE";
  const auto way = direction(sort.ascending);
  if (sort.column == CategorySortColumn::songCount) {
    return fmt::format("trackCount{}, {}", way, kName);
  }
  return fmt::format("{}{}", kName, way);
}

}  // namespace velorin
