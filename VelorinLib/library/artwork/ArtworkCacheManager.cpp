#include "library/artwork/ArtworkCacheManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/artwork/EmbeddedPicture.h"
#include "platform/images/ImageDecoder.h"
#include "platform/images/ImageEncoder.h"
#include "platform/images/ImageScaler.h"

namespace velorin {

namespace fs = std::filesystem;

namespace {

constexpr double kQuality = 0.85;

void logFailure(std::int64_t albumId, std::string_view error) {
  log::line("❌ Failed to cache artwork for album {}: {}", albumId, error);
}

void logUnreadable(const std::string& path, const ImageError& error) {
  log::line("⚠️ No artwork from {}: {}", text::pathForDisplay(path), error.reason);
}

/// Without a sync: what a power cut loses is made again, while thousands of syncs in a row would
/// hold up every other writer on the disk. 0 or an error number.
int writeFile(const std::string& path, std::span<const std::uint8_t> bytes) {
  const int file =
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (file < 0) return errno;
  int error = 0;
  while (!bytes.empty() && error == 0) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written >= 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      error = errno;
    }
  }
  if (::close(file) != 0 && error == 0) error = errno;
  return error;
}

}  // namespace

ArtworkCacheManager::ArtworkCacheManager(fs::path dataDirectory)
    : _cacheDirectory(dataDirectory / "artwork-cache") {
  std::error_code error;
  fs::create_directories(_cacheDirectory, error);
  if (error) {
    log::line("❌ Cannot make {}: {}", text::pathForDisplay(_cacheDirectory), error.message());
  }
  fs::remove_all(dataDirectory / "artwork", error);
}

std::string ArtworkCacheManager::cachedImagePath(std::int64_t albumId) const {
  return fmt::format("{}/{}.jpg", _cacheDirectory.native(), albumId);
}

bool ArtworkCacheManager::hasCachedImage(std::int64_t albumId) const {
  struct stat status {};
  return ::stat(cachedImagePath(albumId).c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         status.st_size > 0;
}

bool ArtworkCacheManager::cacheImage(std::int64_t albumId, const Bitmap& image) {
  const ImageSize size{image.width, image.height};
  const ImageSize wanted = fittingSize(size, kMaxSide);
  if (wanted != size) {
    const auto smaller = scaled(image, wanted);
    if (smaller) return cacheImage(albumId, smaller.value());
    logFailure(albumId, smaller.error().reason);
    return false;
  }
  const auto jpeg = encodeJpeg(image, kQuality);
  if (jpeg) return write(albumId, jpeg.value());
  logFailure(albumId, jpeg.error().reason);
  return false;
}

bool ArtworkCacheManager::cacheImageFile(std::int64_t albumId, const std::string& picturePath) {
  const auto image = decodeImageFile(picturePath, kMaxSide);
  if (image) return cacheImage(albumId, image.value());
  logUnreadable(picturePath, image.error());
  return false;
}

bool ArtworkCacheManager::cacheImageBytes(std::int64_t albumId,
                                          std::span<const std::uint8_t> picture) {
  const auto image = decodeImage(picture, kMaxSide);
  if (image) return cacheImage(albumId, image.value());
  logFailure(albumId, image.error().reason);
  return false;
}

bool ArtworkCacheManager::cacheEmbeddedArtwork(std::int64_t albumId, const std::string& audioPath) {
  const auto picture = readEmbeddedPicture(audioPath);
  if (!picture) return false;
  const auto image = decodeImage(*picture, kMaxSide);
  if (image) return cacheImage(albumId, image.value());
  logUnreadable(audioPath, image.error());
  return false;
}

bool ArtworkCacheManager::write(std::int64_t albumId, std::span<const std::uint8_t> jpeg) {
  const std::string temporary = fmt::format("{}/.{}.jpg.new", _cacheDirectory.native(), albumId);
  const MutexLock lock(_writing);
  int error = writeFile(temporary, jpeg);
  if (error == ENOENT) {
    // Somebody tidied up.
    std::error_code ignored;
    fs::create_directories(_cacheDirectory, ignored);
    error = writeFile(temporary, jpeg);
  }
  if (error == 0 && ::rename(temporary.c_str(), cachedImagePath(albumId).c_str()) != 0) {
    error = errno;
  }
  if (error == 0) return true;
  ::unlink(temporary.c_str());
  logFailure(albumId, std::generic_category().message(error));
  return false;
}

void ArtworkCacheManager::removeAll() {
  const MutexLock lock(_writing);
  std::error_code error;
  fs::remove_all(_cacheDirectory, error);
  if (!error) fs::create_directories(_cacheDirectory, error);
  if (error) {
    log::line("❌ Cannot empty {}: {}", text::pathForDisplay(_cacheDirectory), error.message());
  }
}

}  // namespace velorin
