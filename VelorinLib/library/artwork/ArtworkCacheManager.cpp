#include "library/artwork/ArtworkCacheManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/artwork/EmbeddedPicture.h"
#include "platform/files/RegularFile.h"
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

/// What it means that no picture came out of a file: a share that went away in between, or a file
/// that may not be read, is not one without a picture.
PictureOutcome withoutPicture(const std::string& source) {
  const auto file = RegularFile::open(source);
  if (!file) return PictureOutcome::failed;
  const std::uint64_t size = file.value().size();
  std::array<std::byte, 1> last;
  const bool isWhole = size == 0 || file.value().read(size - 1, last) == 1;
  return isWhole ? PictureOutcome::noPicture : PictureOutcome::failed;
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

std::optional<std::int64_t> ArtworkCacheManager::cachedImageTime(std::int64_t albumId) const {
  struct stat status {};
  if (::stat(cachedImagePath(albumId).c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
      status.st_size == 0) {
    return std::nullopt;
  }
  return static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec;
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

bool ArtworkCacheManager::cacheImageBytes(std::int64_t albumId,
                                          std::span<const std::uint8_t> picture) {
  const auto image = decodeImage(picture, kMaxSide);
  if (image) return cacheImage(albumId, image.value());
  logFailure(albumId, image.error().reason);
  return false;
}

PictureOutcome ArtworkCacheManager::cacheImageFile(std::int64_t albumId,
                                                   const std::string& picturePath) {
  return take(albumId, picturePath, decodeImageFile(picturePath, kMaxSide));
}

PictureOutcome ArtworkCacheManager::cacheEmbeddedArtwork(std::int64_t albumId,
                                                         const std::string& audioPath) {
  const auto picture = readEmbeddedPicture(audioPath);
  if (!picture) return withoutPicture(audioPath);
  return take(albumId, audioPath, decodeImage(*picture, kMaxSide));
}

PictureOutcome ArtworkCacheManager::take(std::int64_t albumId, const std::string& source,
                                         const Result<Bitmap, ImageError>& image) {
  if (image) {
    return cacheImage(albumId, image.value()) ? PictureOutcome::cached : PictureOutcome::failed;
  }
  logUnreadable(source, image.error());
  return withoutPicture(source);
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
