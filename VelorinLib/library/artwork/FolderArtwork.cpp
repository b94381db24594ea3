#include "library/artwork/FolderArtwork.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <vector>

#include "foundation/Text.h"

namespace velorin {
namespace {

template <std::size_t count>
bool isOneOf(std::string_view name, const std::array<std::string_view, count>& names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool isPicture(std::string_view name) {
  static constexpr std::array<std::string_view, 6> kExtensions{"jpg", "jpeg", "png",
                                                               "bmp", "tiff", "webp"};
  return isOneOf(text::fileExtension(name), kExtensions);
}

bool isCoverName(std::string_view name) {
  static constexpr std::array<std::string_view, 6> kStems{"cover",   "folder",   "front",
                                                          "artwork", "albumart", "album"};
  return isOneOf(text::lowercaseASCII(name.substr(0, name.rfind('.'))), kStems);
}

bool isArtworkFolder(std::string_view name) {
  static constexpr std::array<std::string_view, 5> kNames{"covers", "cover", "artwork", "scans",
                                                          "art"};
  return isOneOf(text::lowercaseASCII(name), kNames);
}

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

/// What one reading of a folder tells: names sorted by their bytes, so that the choice does not
/// depend on the file system.
struct Listing {
  std::vector<std::string> pictures;
  std::vector<std::string> artworkFolders;
};

/// Asks the disk only where the folder itself does not say, as for a link.
mode_t kindOf(DIR* folder, const dirent& entry) {
  if (entry.d_type == DT_REG) return S_IFREG;
  if (entry.d_type == DT_DIR) return S_IFDIR;
  struct stat status {};
  if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK) return 0;
  if (::fstatat(::dirfd(folder), entry.d_name, &status, 0) != 0) return 0;
  return status.st_mode & S_IFMT;
}

Listing list(const std::string& path) {
  Listing listing;
  const std::unique_ptr<DIR, CloseFolder> folder(::opendir(path.c_str()));
  if (!folder) return listing;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string_view name = entry->d_name;
    if (name.starts_with('.')) continue;
    // Most names are music; they cost no more than this.
    if (isPicture(name) && kindOf(folder.get(), *entry) == S_IFREG) {
      listing.pictures.emplace_back(name);
    } else if (isArtworkFolder(name) && kindOf(folder.get(), *entry) == S_IFDIR) {
      listing.artworkFolders.emplace_back(name);
    }
  }
  std::ranges::sort(listing.pictures);
  std::ranges::sort(listing.artworkFolders);
  return listing;
}

}  // namespace

std::optional<std::string> findArtwork(const std::string& folder) {
  std::optional<std::string> first;
  const auto coverAmong = [&](const std::string& path,
                              const std::vector<std::string>& pictures) -> const std::string* {
    if (!first && !pictures.empty()) first = path + "/" + pictures.front();
    const auto cover = std::ranges::find_if(pictures, isCoverName);
    return cover == pictures.end() ? nullptr : &*cover;
  };

  const Listing own = list(folder);
  if (const auto* cover = coverAmong(folder, own.pictures)) return folder + "/" + *cover;
  for (const std::string& name : own.artworkFolders) {
    const std::string path = folder + "/" + name;
    const Listing inside = list(path);
    if (const auto* cover = coverAmong(path, inside.pictures)) return path + "/" + *cover;
  }
  return first;
}

}  // namespace velorin
