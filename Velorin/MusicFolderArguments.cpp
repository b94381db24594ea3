#include "MusicFolderArguments.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "foundation/Text.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;

/// Where the path leads, links followed; the path itself where that cannot be told.
fs::path target(const std::string& path) {
  std::error_code failure;
  const fs::path real = fs::canonical(path, failure);
  return failure ? fs::path(path) : real;
}

bool isInside(const fs::path& path, const fs::path& folder) {
  const auto [end, at] = std::mismatch(folder.begin(), folder.end(), path.begin(), path.end());
  return end == folder.end() && at != path.end();
}

}  // namespace

std::string musicFolderPath(const fs::path& given) {
  std::string path = fs::absolute(given).lexically_normal().native();
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

std::optional<std::string> whyNotAdded(const std::string& folder,
                                       const std::vector<std::string>& musicFolders) {
  const std::string name = text::pathForDisplay(folder);
  std::error_code failure;
  const fs::file_status status = fs::status(folder, failure);
  if (!fs::status_known(status)) return fmt::format("{}: {}", name, failure.message());
  if (!fs::exists(status)) return fmt::format("{}: there is no such folder", name);
  if (!fs::is_directory(status)) {
    return fmt::format("{} is not a folder: give the folder that it is in", name);
  }
  if (::access(folder.c_str(), R_OK | X_OK) != 0) {
    return fmt::format("{} cannot be read: {}", name, std::strerror(errno));
  }
  const fs::path real = target(folder);
  for (const std::string& other : musicFolders) {
    const fs::path otherReal = target(other);
    const std::string otherName = text::pathForDisplay(other);
    if (folder == other) {
      return fmt::format("{} is a music folder already: 'velorin scan' looks for changes", name);
    }
    if (real == otherReal) return fmt::format("{} is the same folder as {}", name, otherName);
    if (isInside(real, otherReal)) {
      return fmt::format("{} is inside the music folder {}: 'velorin scan' finds what is new in it",
                         name, otherName);
    }
    if (isInside(otherReal, real)) {
      return fmt::format("{} holds the music folder {}: remove that one first", name, otherName);
    }
  }
  return std::nullopt;
}

}  // namespace velorin
