// Playlists: their names, rules and tracks.
#pragma once

#include <chrono>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "library/DatabaseHandle.h"
#include "records/Playlist.h"
#include "records/TrackInfo.h"

namespace velorin {

/// What a change of a playlist throws when it is refused.
struct PlaylistError : VelorinDatabaseError {
  static constexpr const char* kDomain = "Velorin.Playlists";
  enum class Code {
    emptyName = 1,
    databaseUnavailable = 2,
    createdNotLoaded = 3,
    nameTaken = 4,
    nameOfDeleted = 5,  ///< the name of a playlist that was deleted, which keeps it
    unknownPlaylist = 6,
  };

  explicit PlaylistError(Code code);

  Code code;
};

/// The tracks of a plain playlist stand at the positions 0, 1, 2 …, each track at most once. A
/// track that leaves the library leaves a gap behind, which the next change of what stands behind
/// it closes.
///
/// Names are kept without white space at their ends, and are unique without regard to the case of
/// A to Z. What changes a playlist that does not exist throws PlaylistError where it would get
/// something new (a name, rules, tracks), and does nothing where it would lose or move something.
///
/// Any thread but the render thread; other errors are thrown as VelorinDatabaseError. `now` becomes
/// the date of the change.
class Playlists {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  explicit Playlists(const DatabaseHandle& database) : _database(database) {}

  Playlist createPlaylist(std::string_view name, TimePoint now = std::chrono::system_clock::now());
  /// The rules are kept as they are given.
  Playlist createSmartPlaylist(std::string_view name, std::string_view rulesJSON,
                               TimePoint now = std::chrono::system_clock::now());
  void updateSmartPlaylist(std::int64_t id, std::string_view rulesJSON,
                           TimePoint now = std::chrono::system_clock::now());
  void renamePlaylist(std::int64_t id, std::string_view name,
                      TimePoint now = std::chrono::system_clock::now());
  /// Hides it: its tracks stay in the database, and its name stays taken.
  void deletePlaylist(std::int64_t id);

  /// By name. A limit below 0 means all.
  std::vector<Playlist> fetchPlaylists(std::int64_t limit = -1, std::int64_t offset = 0) const;

  /// Appends the tracks in this order. Tracks that are in the playlist already stay where they are;
  /// tracks that are not in the library are passed over.
  void addTracks(std::int64_t playlistId, const std::vector<std::int64_t>& ids,
                 TimePoint now = std::chrono::system_clock::now());
  void removeTrack(std::int64_t playlistId, std::int64_t trackId,
                   TimePoint now = std::chrono::system_clock::now());
  /// Puts the named tracks first, in this order, and the others behind them in the order they had.
  /// A name counts where it stands first; tracks that are not in the playlist are passed over.
  void reorderTracks(std::int64_t playlistId, const std::vector<std::int64_t>& ids,
                     TimePoint now = std::chrono::system_clock::now());

  std::vector<TrackInfo> fetchPlaylistTracks(std::int64_t id, std::int64_t limit = -1,
                                             std::int64_t offset = 0) const;
  std::int64_t countPlaylistTracks(std::int64_t id) const;

  /// Of these tracks up to four for a mosaic: the lowest id of each of four albums, albums with a
  /// cover first, then by album id.
  std::vector<std::int64_t> fetchPlaylistCover(const std::vector<std::int64_t>& ids) const;

  /// The album of the first track of each playlist, by playlist id; none for one without tracks.
  std::unordered_map<std::int64_t, std::int64_t> fetchFirstAlbums(
      const std::vector<std::int64_t>& playlistIds) const;

 private:
  template <class Closure>
  auto write(Closure&& closure);
  Playlist create(std::string_view name, std::optional<std::string_view> rulesJSON, TimePoint now);

  const DatabaseHandle& _database;
};

}  // namespace velorin
