// Searching the library for what a user types.
#pragma once

#include "library/DatabaseHandle.h"
#include "library/queries/TrackListings.h"
#include "library/search/MatchFinder.h"
#include "records/FocusFilter.h"
#include "records/Playlist.h"
#include "records/Sorts.h"
#include "records/TrackInfo.h"

namespace velorin {

/// Searches for tracks look at the title of a track, the name of its artist and the title of its
/// album; every word of the text must begin a word there (see SearchPattern), in any mixture. Case
/// and accents do not count. A text without words finds nothing. Any bytes may be searched for:
/// errors, thrown as VelorinDatabaseError, come from the database only.
///
/// Relevance is FTS5's; where it is equal, the track that came first stands first. A limit below 0
/// means all. Any thread but the render thread. For a million tracks holds 2 MB.
class LibrarySearch {
 public:
  explicit LibrarySearch(const DatabaseHandle& database) : _database(database) {}

  /// In the order of the sort; without one, the most relevant first.
  std::vector<TrackInfo> searchTracks(std::string_view text,
                                      const std::optional<TrackSort>& sort = {},
                                      const std::optional<FocusFilter>& focus = {},
                                      std::int64_t limit = -1, std::int64_t offset = 0);

  /// The tracks that came in last first.
  std::vector<TrackInfo> searchRecentlyAddedTracks(std::string_view text,
                                                   const std::optional<FocusFilter>& focus = {},
                                                   std::int64_t limit = -1,
                                                   std::int64_t offset = 0);

  /// Inside one genre or composer, spelled so.
  std::vector<TrackInfo> searchTracks(TrackCategory category, const std::string& value,
                                      std::string_view text, const TrackSort& sort,
                                      const std::optional<FocusFilter>& focus = {},
                                      std::int64_t limit = -1, std::int64_t offset = 0);

  /// Inside a set of ids: the most relevant first, among each 500 of the ids.
  std::vector<TrackInfo> searchTracksAmong(std::string_view text,
                                           const std::vector<std::int64_t>& trackIds);

  /// In album order.
  std::vector<TrackInfo> searchTracksInAlbum(std::string_view text, std::int64_t albumId);

  /// The artist's albums with a track that matches, by year and title.
  std::vector<Album> searchAlbumsOfArtist(std::string_view text, std::int64_t artistId);

  /// In the playlist's order.
  std::vector<TrackInfo> searchTracksInPlaylist(std::string_view text, std::int64_t playlistId);

  /// Among the files that lie in the folder itself, by path. With or without a "/" at its end.
  std::vector<TrackInfo> searchTracksInFolder(std::string_view text, const std::string& folder);

  /// Those whose name holds the text as it stands, without regard to the case of A to Z; by name.
  std::vector<Artist> searchArtists(std::string_view text) const;
  /// The same; a deleted playlist is not found.
  std::vector<Playlist> searchPlaylists(std::string_view text) const;

 private:
  /// Runs use(reader, matches) inside a read and returns the tracks of the ids that it returns.
  template <class Use>
  std::vector<TrackInfo> search(std::string_view text, Use&& use);
  std::vector<TrackInfo> searchSorted(std::string_view text, const SqlFragment& filter,
                                      const TrackSort& sort, std::int64_t limit,
                                      std::int64_t offset);

  const DatabaseHandle& _database;
  MatchFinder _finder;
};

}  // namespace velorin
