// Which cover belongs to an album, and the colour drawn from it.
#pragma once

#include <string>
#include <vector>

#include "library/DatabaseHandle.h"

namespace velorin {

/// Any thread but the render thread; failures throw VelorinDatabaseError.
class AlbumArtwork {
 public:
  struct Cover {
    std::int64_t albumId = 0;
    std::string artworkPath;  ///< of the picture in the cache

    bool operator==(const Cover&) const = default;
  };
  struct CoverSource {
    std::int64_t albumId = 0;
    std::string trackPath;  ///< of the track whose file is most likely to hold a picture

    bool operator==(const CoverSource&) const = default;
  };

  explicit AlbumArtwork(const DatabaseHandle& database) : _database(database) {}

  /// Empty for an album without a cover, and for one that is not in the library.
  std::optional<std::string> albumArtworkPath(std::int64_t albumId) const;
  /// The albums with a cover, by id.
  std::vector<Cover> albumsWithArtwork() const;
  /// The albums without a cover that have tracks, by id, each with its first track in a format
  /// that can carry a picture, or else its first track.
  std::vector<CoverSource> albumsMissingArtwork() const;
  void updateAlbumArtwork(std::int64_t albumId, const std::optional<std::string>& path) const;

  /// The accent colour as it was stored.
  std::optional<std::string> albumAccentColor(std::int64_t albumId) const;
  void setAlbumAccentColor(std::int64_t albumId, const std::optional<std::string>& hex) const;

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
