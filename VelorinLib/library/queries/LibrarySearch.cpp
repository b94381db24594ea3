#include "library/queries/LibrarySearch.h"

#include <unordered_set>

#include "library/queries/Like.h"
#include "library/queries/PathPrefix.h"
#include "library/queries/SortText.h"
#include "library/rows/PlaylistRow.h"
#include "library/rows/TrackInfos.h"

namespace velorin {
namespace {

using Ids = std::vector<std::int64_t>;

// A focus is checked row by row, best rows first: so many are put in order at first, and eight
// times as many whenever they have run out.
constexpr std::ptrdiff_t kFirstOrdered = 200;

/// The ids of a statement that matched, in its order.
template <class... Arguments>
Ids matching(sqlite::Reader& reader, const SearchMatches& matches, std::string_view sql,
             const Arguments&... arguments) {
  Ids ids;
  if (matches.isEmpty()) return ids;
  reader.each(
      sql,
      [&](const sqlite::Row& row) {
        const auto id = row.get<std::int64_t>(0);
        if (matches.contains(id)) ids.push_back(id);
      },
      arguments...);
  return ids;
}

template <class Record, class... Arguments>
std::vector<Record> records(sqlite::Reader& reader, std::string_view sql,
                            const Arguments&... arguments) {
  std::vector<Record> found;
  reader.each(
      sql,
      [&](const sqlite::Row& row) {
        sqlite::RowReader columns(row);
        columns >> found.emplace_back();
      },
      arguments...);
  return found;
}

/// Appends those of the ids that are inside the focus, in their order.
void appendInFocus(Ids& kept, sqlite::Reader& reader, std::span<const std::int64_t> ids,
                   const SqlFragment& focus) {
  const auto found =
      reader.column<std::int64_t>(fmt::format("SELECT tracks.id FROM tracks\n"
                                              "JOIN albums ON albums.id = tracks.albumId\n"
                                              "WHERE tracks.id IN ({})\nAND {}",
                                              sqlite::placeholders(ids.size()), focus.text),
                                  ids, focus.arguments);
  const std::unordered_set<std::int64_t> inside(found.begin(), found.end());
  for (const std::int64_t id : ids) {
    if (inside.contains(id)) kept.push_back(id);
  }
}

/// A page of what the focus leaves. `ordered(n)` gives the first n matches. No more are put in
/// order, and checked against the focus, than the page needs.
template <class Ordered>
Ids focusedPage(sqlite::Reader& reader, const SearchMatches& matches, const SqlFragment& focus,
                std::int64_t limit, std::int64_t offset, Ordered&& ordered) {
  const auto all = static_cast<std::int64_t>(matches.size());
  const std::int64_t from = std::max<std::int64_t>(offset, 0);
  const std::int64_t wanted = limit < 0 || limit > all - from ? all : from + limit;
  Ids kept;
  Ids ids;
  for (std::size_t next = 0; std::ssize(kept) < wanted;) {
    if (next == ids.size()) {
      if (std::ssize(ids) == all) break;
      ids = ordered(std::min(all, std::max(kFirstOrdered, 8 * std::ssize(ids))));
    }
    const std::size_t count = std::min(sqlite::kSliceSize, ids.size() - next);
    appendInFocus(kept, reader, std::span(ids).subspan(next, count), focus);
    next += count;
  }
  kept.resize(static_cast<std::size_t>(std::min<std::int64_t>(std::ssize(kept), wanted)));
  kept.erase(kept.begin(), kept.begin() + std::min<std::int64_t>(from, std::ssize(kept)));
  return kept;
}

}  // namespace

template <class Use>
std::vector<TrackInfo> LibrarySearch::search(std::string_view text, Use&& use) {
  const SearchPattern pattern(text);
  const auto queue = _database.dbQueue();
  if (pattern.isEmpty() || !queue) return {};
  return queue->read([&](sqlite::Reader& reader) {
    return rows::trackInfosInOrder(reader, use(reader, _finder.find(queue, reader, pattern)));
  });
}

std::vector<TrackInfo> LibrarySearch::searchTracks(std::string_view text,
                                                   const std::optional<TrackSort>& sort,
                                                   const std::optional<FocusFilter>& focus,
                                                   std::int64_t limit, std::int64_t offset) {
  const auto filter = focusSQL(focus);
  if (sort)
    return searchSorted(text, filter.value_or(SqlFragment{"TRUE", {}}), *sort, limit, offset);
  return search(text, [&](sqlite::Reader& reader, const SearchMatches& matches) {
    if (!filter) return matches.byRelevance(limit, offset);
    return focusedPage(reader, matches, *filter, limit, offset,
                       [&](std::int64_t count) { return matches.byRelevance(count); });
  });
}

std::vector<TrackInfo> LibrarySearch::searchRecentlyAddedTracks(
    std::string_view text, const std::optional<FocusFilter>& focus, std::int64_t limit,
    std::int64_t offset) {
  const auto filter = focusSQL(focus);
  return search(text, [&](sqlite::Reader& reader, const SearchMatches& matches) {
    if (!filter) return matches.newestFirst(limit, offset);
    return focusedPage(reader, matches, *filter, limit, offset,
                       [&](std::int64_t count) { return matches.newestFirst(count); });
  });
}

std::vector<TrackInfo> LibrarySearch::searchTracks(TrackCategory category, const std::string& value,
                                                   std::string_view text, const TrackSort& sort,
                                                   const std::optional<FocusFilter>& focus,
                                                   std::int64_t limit, std::int64_t offset) {
  SqlFragment filter{category == TrackCategory::genre ? "tracks.genre = ?" : "tracks.composer = ?",
                     {value}};
  if (const auto more = focusSQL(focus)) {
    filter.text += " AND " + more->text;
    filter.arguments.insert(filter.arguments.end(), more->arguments.begin(), more->arguments.end());
  }
  return searchSorted(text, filter, sort, limit, offset);
}

/// Sorting needs columns of every match, so that here SQLite does the whole work.
std::vector<TrackInfo> LibrarySearch::searchSorted(std::string_view text, const SqlFragment& filter,
                                                   const TrackSort& sort, std::int64_t limit,
                                                   std::int64_t offset) {
  const SearchPattern pattern(text);
  if (pattern.isEmpty()) return {};
  const std::string sql = fmt::format(R"(
SELECT tracks_fts.rowid FROM tracks_fts
JOIN tracks ON tracks.id = tracks_fts.rowid
JOIN albums ON albums.id = tracks.albumId
JOIN artists ON artists.id = tracks.artistId
WHERE tracks_fts MATCH ?
AND {}
ORDER BY {}, tracks.id
LIMIT ? OFFSET ?)",
                                      filter.text, orderText(sort));
  return _database.read([&](sqlite::Reader& reader) {
    return rows::trackInfosInOrder(
        reader, reader.column<std::int64_t>(sql, pattern.match(), filter.arguments, limit, offset));
  });
}

std::vector<TrackInfo> LibrarySearch::searchTracksAmong(std::string_view text,
                                                        const Ids& trackIds) {
  return search(text, [&](sqlite::Reader&, const SearchMatches& matches) {
    Ids found;
    sqlite::forEachSlice(trackIds, [&](std::span<const std::int64_t> slice) {
      const Ids ids = matches.byRelevance(Ids(slice.begin(), slice.end()));
      found.insert(found.end(), ids.begin(), ids.end());
    });
    return found;
  });
}

std::vector<TrackInfo> LibrarySearch::searchTracksInAlbum(std::string_view text,
                                                          std::int64_t albumId) {
  return search(text, [&](sqlite::Reader& reader, const SearchMatches& matches) {
    return matching(
        reader, matches,
        fmt::format("SELECT tracks.id FROM tracks WHERE tracks.albumId = ?\nORDER BY {}, tracks.id",
                    kOrderWithinAlbum),
        albumId);
  });
}

std::vector<Album> LibrarySearch::searchAlbumsOfArtist(std::string_view text,
                                                       std::int64_t artistId) {
  const SearchPattern pattern(text);
  const auto queue = _database.dbQueue();
  if (pattern.isEmpty() || !queue) return {};
  return queue->read([&](sqlite::Reader& reader) {
    const SearchMatches matches = _finder.find(queue, reader, pattern);
    std::vector<Album> albums = records<Album>(
        reader,
        fmt::format("SELECT {} FROM albums WHERE albums.artistId = ?\nORDER BY {}, albums.id",
                    rows::kAlbumColumns, kAlbumOrderWithinArtist),
        artistId);
    std::erase_if(albums, [&](const Album& album) {
      return matching(reader, matches, "SELECT id FROM tracks WHERE albumId = ?", *album.id)
          .empty();
    });
    return albums;
  });
}

std::vector<TrackInfo> LibrarySearch::searchTracksInPlaylist(std::string_view text,
                                                             std::int64_t playlistId) {
  return search(text, [&](sqlite::Reader& reader, const SearchMatches& matches) {
    return matching(reader, matches,
                    "SELECT trackId FROM playlist_tracks WHERE playlistId = ?\nORDER BY position",
                    playlistId);
  });
}

std::vector<TrackInfo> LibrarySearch::searchTracksInFolder(std::string_view text,
                                                           const std::string& folder) {
  const PathPrefix prefix(folder);
  return search(text, [&](sqlite::Reader& reader, const SearchMatches& matches) {
    // The folder's own files have no further '/' in their paths. Bytes are counted, not characters.
    return matching(reader, matches, R"(
SELECT tracks.id FROM tracks
WHERE tracks.filePath > ? AND tracks.filePath < ?
  AND instr(substr(CAST(tracks.filePath AS BLOB), ?), x'2f') = 0
ORDER BY tracks.filePath COLLATE NOCASE, tracks.id)",
                    prefix.begin(), prefix.end(), prefix.begin().size() + 1);
  });
}

std::vector<Artist> LibrarySearch::searchArtists(std::string_view text) const {
  const auto pattern = likeAnywhere(text);
  if (!pattern) return {};
  return _database.read([&](sqlite::Reader& reader) {
    return records<Artist>(reader,
                           fmt::format("SELECT {} FROM artists WHERE name LIKE ? ESCAPE '\\'\n"
                                       "ORDER BY name COLLATE NOCASE",
                                       rows::kArtistColumns),
                           *pattern);
  });
}

std::vector<Playlist> LibrarySearch::searchPlaylists(std::string_view text) const {
  const auto pattern = likeAnywhere(text);
  if (!pattern) return {};
  return _database.read([&](sqlite::Reader& reader) {
    return records<Playlist>(
        reader,
        fmt::format("SELECT {} FROM playlists WHERE NOT isHidden AND name LIKE ? ESCAPE '\\'\n"
                    "ORDER BY name COLLATE NOCASE",
                    rows::kPlaylistColumns),
        *pattern);
  });
}

}  // namespace velorin
