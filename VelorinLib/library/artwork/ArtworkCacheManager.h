// One small JPEG per album, in a folder of our own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include "foundation/Mutex.h"
#include "foundation/Result.h"
#include "platform/images/Bitmap.h"

namespace velorin {

/// What became of an album's picture.
enum class PictureOutcome {
  cached,
  noPicture,  ///< the source could be read and holds none, or none that can be shown
  failed,     ///< the source could not be read, or the cache could not be written
};

/// Any thread but the render thread; blocks for the disk. Processes do not share a cache folder.
class ArtworkCacheManager {
 public:
  /// Pixels of the longer side of a cached picture.
  static constexpr int kMaxSide = 512;

  /// Makes "artwork-cache" in the data folder (paths::dataDirectory()), and removes the folder
  /// "artwork" that older versions kept there.
  explicit ArtworkCacheManager(std::filesystem::path dataDirectory);
  ArtworkCacheManager(const ArtworkCacheManager&) = delete;
  ArtworkCacheManager& operator=(const ArtworkCacheManager&) = delete;

  const std::filesystem::path& cacheDirectory() const { return _cacheDirectory; }

  /// Where what is known of the pictures' sources is kept, see ArtworkSources.h.
  std::string sourcesPath() const { return (_cacheDirectory / "sources").native(); }

  /// Where the album's picture is, or would be.
  std::string cachedImagePath(std::int64_t albumId) const;
  /// True when it is there. An empty file, as a power cut may leave it, is none.
  bool hasCachedImage(std::int64_t albumId) const { return cachedImageTime(albumId).has_value(); }
  /// When it was stored, in nanoseconds since 1970; nothing when it is not there.
  std::optional<std::int64_t> cachedImageTime(std::int64_t albumId) const;

  /// Scales the picture down to kMaxSide where it is larger, and stores it in place of what was
  /// there. A reader sees the old picture or the new one. False, with a log line, when it cannot be
  /// written.
  bool cacheImage(std::int64_t albumId, const Bitmap& image);
  /// The same for the bytes of a picture file.
  bool cacheImageBytes(std::int64_t albumId, std::span<const std::uint8_t> picture);
  /// The same for a picture file, and for the first picture inside an audio file, see
  /// readEmbeddedPicture(). A log line says why a picture cannot be read.
  PictureOutcome cacheImageFile(std::int64_t albumId, const std::string& picturePath);
  PictureOutcome cacheEmbeddedArtwork(std::int64_t albumId, const std::string& audioPath);

  /// Empties the cache.
  void removeAll();

 private:
  PictureOutcome take(std::int64_t albumId, const std::string& source,
                      const Result<Bitmap, ImageError>& image);
  bool write(std::int64_t albumId, std::span<const std::uint8_t> jpeg);

  const std::filesystem::path _cacheDirectory;
  Mutex _writing;  ///< two writers of one album share the temporary file
};

}  // namespace velorin
