// One small JPEG per album, in a folder of our own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "foundation/Mutex.h"
#include "platform/images/Bitmap.h"

namespace velorin {

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

  /// Where the album's picture is, or would be.
  std::string cachedImagePath(std::int64_t albumId) const;
  /// True when it is there. An empty file, as a power cut may leave it, is none.
  bool hasCachedImage(std::int64_t albumId) const;

  /// Scales the picture down to kMaxSide where it is larger, and stores it in place of what was
  /// there. A reader sees the old picture or the new one. False, with a log line, when it cannot be
  /// written.
  bool cacheImage(std::int64_t albumId, const Bitmap& image);
  /// The same for a picture file, and for the bytes of one. Throws nothing for a picture that
  /// cannot be read: false, with a log line that says why.
  bool cacheImageFile(std::int64_t albumId, const std::string& picturePath);
  bool cacheImageBytes(std::int64_t albumId, std::span<const std::uint8_t> picture);

  /// Stores the first picture inside an audio file, see readEmbeddedPicture(). False when there is
  /// none, and, with a log line, when it cannot be read or written.
  bool cacheEmbeddedArtwork(std::int64_t albumId, const std::string& audioPath);

  /// Empties the cache.
  void removeAll();

 private:
  bool write(std::int64_t albumId, std::span<const std::uint8_t> jpeg);

  const std::filesystem::path _cacheDirectory;
  Mutex _writing;  ///< two writers of one album share the temporary file
};

}  // namespace velorin
