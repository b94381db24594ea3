#include "library/scan/SupportedFiles.h"

#include <algorithm>

namespace velorin {
namespace {

constexpr std::size_t kLongestExtension = 4;

constexpr std::array<std::string_view, 5> kForeignFolders{
    "#recycle", "#snapshot", "@eaDir", "$RECYCLE.BIN", "System Volume Information"};

bool isHidden(std::string_view name) noexcept {
  return name.starts_with('.');
}

bool isReachableBelow(std::string_view path, std::string_view folder) noexcept {
  while (folder.ends_with('/')) folder.remove_suffix(1);
  if (path.size() <= folder.size() + 1 || !path.starts_with(folder) || path[folder.size()] != '/') {
    return false;
  }
  std::string_view rest = path.substr(folder.size() + 1);
  for (std::size_t slash = rest.find('/'); slash != std::string_view::npos;
       slash = rest.find('/')) {
    if (isPassedOver(rest.substr(0, slash))) return false;
    rest.remove_prefix(slash + 1);
  }
  return !isHidden(rest);
}

}  // namespace

std::optional<FileKind> kindOfFile(std::string_view name) noexcept {
  const std::size_t dot = name.rfind('.');
  // A dot at the very beginning makes a hidden name, not an extension.
  if (dot == std::string_view::npos || dot == 0 || name[dot - 1] == '/') return std::nullopt;
  const std::string_view extension = name.substr(dot + 1);
  if (extension.empty() || extension.size() > kLongestExtension) return std::nullopt;
  std::array<char, kLongestExtension> lowered{};
  std::ranges::transform(extension, lowered.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  const std::string_view known(lowered.data(), extension.size());
  if (std::ranges::find(kSupportedExtensions, known) == kSupportedExtensions.end()) {
    return std::nullopt;
  }
  if (known == "cue") return FileKind::cueSheet;
  return known.starts_with("m3u") ? FileKind::playlist : FileKind::audio;
}

bool isPassedOver(std::string_view folderName) noexcept {
  return isHidden(folderName) ||
         std::ranges::find(kForeignFolders, folderName) != kForeignFolders.end();
}

bool isReachable(std::string_view path, const std::vector<std::string>& folders) noexcept {
  return std::ranges::any_of(
      folders, [&](const std::string& folder) { return isReachableBelow(path, folder); });
}

}  // namespace velorin
