#include "library/queries/TrackOrder.h"

#include <bit>
#include <limits>
#include <numeric>

#include "foundation/Text.h"
#include "library/queries/SortText.h"

namespace velorin {
namespace {

// What one read takes, some 10 ms of the queue.
constexpr std::int64_t kTracksPerRead = 50'000;

// NULL sorts before every number.
constexpr std::uint32_t kNull = 0;

std::uint32_t orderedBits(std::optional<std::int64_t> number) {
  if (!number) return kNull;
  constexpr std::int64_t kLow = std::numeric_limits<std::int32_t>::min() + 1;
  constexpr std::int64_t kHigh = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::uint32_t>(std::clamp(*number, kLow, kHigh) - kLow) + 1;
}

/// An IEEE 754 double as an integer that compares as the number does.
std::uint64_t orderedBits(double number) {
  // -0.0 and 0.0 are equal to SQL.
  const auto bits = std::bit_cast<std::uint64_t>(number == 0 ? 0.0 : number);
  constexpr std::uint64_t kSign = std::uint64_t{1} << 63;
  return (bits & kSign) != 0 ? ~bits : bits | kSign;
}

std::uint64_t orderedBits(std::optional<double> number) {
  return number ? orderedBits(*number) : kNull;
}

std::uint64_t pair(std::uint32_t first, std::uint32_t second) {
  return std::uint64_t{first} << 32 | second;
}

/// The track's own column that a sort reads; "0" where it needs none.
std::string_view primaryColumn(const TrackListing& listing) {
  if (!listing.sort) return "0";
  switch (listing.sort->column) {
    case TrackSortColumn::title:
      return "tracks.title";
    case TrackSortColumn::composer:
      return "COALESCE(tracks.composer, '')";
    case TrackSortColumn::genre:
      return "COALESCE(tracks.genre, '')";
    case TrackSortColumn::format:
      return "COALESCE(tracks.format, '')";
    case TrackSortColumn::duration:
      return "tracks.duration";
    case TrackSortColumn::sampleRate:
      return "COALESCE(tracks.sampleRate, 0)";
    case TrackSortColumn::rating:
      return "COALESCE(tracks.rating, 0)";
    case TrackSortColumn::plays:
      return "tracks.totalPlays";
    case TrackSortColumn::artist:
    case TrackSortColumn::album:
    case TrackSortColumn::year:
      break;
  }
  return "0";
}

std::string trackStatement(const TrackListing& listing) {
  std::string sql =
      "SELECT tracks.id, tracks.artistId, tracks.albumId, tracks.discNumber, tracks.trackNumber, "
      "tracks.cueStartTime, ";
  sql += primaryColumn(listing);
  sql += "\nFROM tracks";
  // A join costs a look-up a row; the parents' keys are in memory.
  const std::string filter = listing.filter ? listing.filter->text : "";
  if (filter.find("albums.") != std::string::npos) {
    sql += "\nJOIN albums ON albums.id = tracks.albumId";
  }
  if (filter.find("artists.") != std::string::npos) {
    sql += "\nJOIN artists ON artists.id = tracks.artistId";
  }
  sql += whereText(listing);
  sql += filter.empty() ? "\nWHERE " : "\n  AND ";
  return sql + "tracks.id >= ? AND tracks.id < ?";
}

}  // namespace

std::string whereText(const TrackListing& listing) {
  return listing.filter ? "\nWHERE (" + listing.filter->text + ")" : "";
}

std::string orderByText(const TrackListing& listing) {
  if (!listing.sort) return fmt::format("\nORDER BY {}", kOrderNewestFirst);
  return fmt::format("\nORDER BY {}, tracks.id", orderText(*listing.sort));
}

TrackOrder::TrackOrder(TrackListing listing)
    : _listing(std::move(listing)),
      _trackStatement(trackStatement(_listing)),
      _lastId(std::numeric_limits<std::int64_t>::min()) {}

bool TrackOrder::sortsByText() const {
  if (!_listing.sort) return false;
  switch (_listing.sort->column) {
    case TrackSortColumn::title:
    case TrackSortColumn::composer:
    case TrackSortColumn::genre:
    case TrackSortColumn::format:
      return true;
    default:
      return false;
  }
}

void TrackOrder::readParents(sqlite::Reader& reader) {
  // Names are unique without regard to case, so that a place in the list is a rank.
  std::uint32_t rank = 0;
  reader.each("SELECT id FROM artists ORDER BY name COLLATE NOCASE",
              [&](const sqlite::Row& row) { _artists.emplace(row.get<std::int64_t>(0), rank++); });

  // Sorted by year, a missing year counts as 0 throughout: the tie-break by year is dropped then.
  const bool byYear = _listing.sort && _listing.sort->column == TrackSortColumn::year;
  const bool byTitle = _listing.sort && _listing.sort->column == TrackSortColumn::album;
  const std::string year = byYear ? "COALESCE(year, 0)" : "year";
  const std::string primary = byTitle  ? "dense_rank() OVER (ORDER BY title COLLATE NOCASE)"
                              : byYear ? "COALESCE(year, 0)"
                                       : "0";
  reader.each("SELECT id, dense_rank() OVER (ORDER BY " + year + ", title COLLATE NOCASE), " +
                  primary + " FROM albums",
              [&](const sqlite::Row& row) {
                _albums.emplace(
                    row.get<std::int64_t>(0),
                    AlbumKey{row.get<std::uint32_t>(1), orderedBits(row.get<double>(2))});
              });
}

bool TrackOrder::readTracks(sqlite::Reader& reader) {
  // Ids may be far apart where much was deleted.
  const auto first =
      reader.first<std::optional<std::int64_t>>("SELECT MIN(id) FROM tracks WHERE id > ?", _lastId);
  if (!first || !*first) return false;
  const std::int64_t from = **first;
  const std::int64_t to = from > std::numeric_limits<std::int64_t>::max() - kTracksPerRead
                              ? std::numeric_limits<std::int64_t>::max()
                              : from + kTracksPerRead;
  const auto take = [&](const sqlite::Row& row) {
    const auto artist = _artists.find(row.get<std::int64_t>(1));
    const auto album = _albums.find(row.get<std::int64_t>(2));
    if (artist == _artists.end() || album == _albums.end()) return;  // as the join leaves it out
    const auto disc = orderedBits(row.get<std::optional<std::int64_t>>(3));
    const auto number = orderedBits(row.get<std::optional<std::int64_t>>(4));
    _keys.push_back({.primary = primaryOf(row, artist->second, album->second),
                     .parents = pair(artist->second, album->second.rank),
                     .place = pair(disc, number),
                     .cueStart = orderedBits(row.get<std::optional<double>>(5)),
                     .id = row.get<std::int64_t>(0)});
    if (sortsByText()) addText(row.get<std::string_view>(6));
  };
  const sqlite::Values none;
  reader.each(_trackStatement, take, _listing.filter ? _listing.filter->arguments : none, from, to);
  _lastId = to - 1;
  return true;
}

std::uint64_t TrackOrder::primaryOf(const sqlite::Row& row, std::uint32_t artist,
                                    const AlbumKey& album) const {
  if (!_listing.sort || sortsByText()) return 0;
  switch (_listing.sort->column) {
    case TrackSortColumn::artist:
      return artist;
    case TrackSortColumn::album:
    case TrackSortColumn::year:
      return album.primary;
    default:
      return orderedBits(row.get<double>(6));
  }
}

void TrackOrder::addText(std::string_view text) {
  _textStarts.push_back(_texts.size());
  for (const char c : text) _texts += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 'a' - 'A') : c;
}

/// Sorts the texts and makes each key's primary the rank of its text.
void TrackOrder::rankTexts() {
  // The first eight bytes decide most comparisons without a look at the text.
  struct Text {
    std::uint64_t beginning;
    std::uint32_t key;
  };
  _textStarts.push_back(_texts.size());
  const auto rest = [&](const Text& text) {
    const std::size_t start = _textStarts[text.key];
    const std::size_t length = _textStarts[text.key + 1] - start;
    return std::string_view(_texts).substr(start + std::min<std::size_t>(length, 8),
                                           length - std::min<std::size_t>(length, 8));
  };
  std::vector<Text> texts(_keys.size());
  for (std::uint32_t i = 0; i < texts.size(); ++i) {
    const std::string_view text =
        std::string_view(_texts).substr(_textStarts[i], _textStarts[i + 1] - _textStarts[i]);
    std::uint64_t beginning = 0;
    for (std::size_t k = 0; k < 8; ++k) {
      const auto byte = k < text.size() ? static_cast<unsigned char>(text[k]) : 0U;
      beginning = beginning << 8 | byte;
    }
    texts[i] = {beginning, i};
  }
  const auto before = [&](const Text& a, const Text& b) {
    return a.beginning != b.beginning ? a.beginning < b.beginning : rest(a) < rest(b);
  };
  std::sort(texts.begin(), texts.end(), before);
  std::uint64_t rank = 0;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (i > 0 && before(texts[i - 1], texts[i])) ++rank;
    _keys[texts[i].key].primary = rank;
  }
  _texts = {};
  _textStarts = {};
}

TrackIdList TrackOrder::sorted() {
  if (!_listing.sort) {
    std::sort(_keys.begin(), _keys.end(), [](const Key& a, const Key& b) { return a.id > b.id; });
  } else {
    if (sortsByText()) rankTexts();
    if (!_listing.sort->ascending) {
      for (Key& key : _keys) key.primary = ~key.primary;
    }
    std::sort(_keys.begin(), _keys.end());
  }
  TrackIdList ids;
  ids.reserve(_keys.size());
  for (const Key& key : _keys) ids.append(key.id);
  _keys = {};
  return ids;
}

}  // namespace velorin
