#include "library/cue/CueAudio.h"

#include <algorithm>
#include <array>
#include <filesystem>

#include "foundation/Normalization.h"
#include "foundation/Text.h"
#include "foundation/Unicode.h"
#include "library/scan/SupportedFiles.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;

bool isFile(const fs::path& path) {
  std::error_code unreachable;
  return fs::is_regular_file(path, unreachable);
}

/// Sheets of disc images name raw sectors, which nobody decodes; the audio may lie beside them.
bool canBeAudio(const fs::path& path) {
  static constexpr std::array kImages = {"bin", "img", "iso", "cue"};
  const std::string extension = text::fileExtension(path.native());
  return std::find(kImages.begin(), kImages.end(), extension) == kImages.end();
}

/// What the name can mean as a path, the likeliest first.
std::vector<fs::path> pathsOf(const std::string& spelling, const fs::path& folder) {
  std::string slashed = spelling;
  std::replace(slashed.begin(), slashed.end(), '\\', '/');
  std::vector<fs::path> paths;
  for (const std::string& name : {spelling, slashed}) {
    // Not operator/, for which a name that begins with a slash stands alone.
    paths.push_back(fs::path(folder.native() + '/' + name).lexically_normal());
    if (name.starts_with('/')) paths.push_back(fs::path(name).lexically_normal());
    if (slashed == spelling) break;
  }
  return paths;
}

/// Equal for names that differ in case or Unicode form alone.
std::string folded(const std::string& name) {
  return text::validUTF8(name) ? unicode::lowercased(unicode::precomposed(name))
                               : text::lowercaseASCII(name);
}

struct Wanted {
  std::string stem;  ///< folded
  std::string extension;
};

std::optional<std::string> findByStem(const fs::path& folder, const std::vector<Wanted>& wanted) {
  std::error_code unreadable;
  std::optional<fs::path> best;
  bool bestIsExact = false;
  for (fs::directory_iterator entries(folder, unreadable), end; !unreadable && entries != end;
       entries.increment(unreadable)) {
    const fs::path& path = entries->path();
    if (kindOfFile(path.native()) != FileKind::audio) continue;
    const std::string stem = folded(path.stem().native());
    for (const Wanted& each : wanted) {
      if (each.stem != stem) continue;
      const bool isExact = each.extension == text::fileExtension(path.native());
      const bool isBetter =
          !best || (isExact != bestIsExact ? isExact : path.native() < best->native());
      if (!isBetter || !isFile(path)) continue;
      best = path;
      bestIsExact = isExact;
    }
  }
  if (!best) return std::nullopt;
  return best->lexically_normal().native();
}

}  // namespace

std::optional<std::string> locateAudio(const std::vector<std::string>& spellings,
                                       const std::string& folder) {
  std::vector<fs::path> folders = {folder};
  std::vector<Wanted> wanted;
  for (const std::string& spelling : spellings) {
    if (spelling.empty() || spelling.find('\0') != std::string::npos) continue;
    for (const fs::path& path : pathsOf(spelling, folder)) {
      if (canBeAudio(path) && isFile(path)) return path.native();
      wanted.push_back({folded(path.stem().native()), text::fileExtension(path.native())});
      const fs::path parent = path.parent_path();
      if (std::find(folders.begin(), folders.end(), parent) == folders.end()) {
        folders.push_back(parent);
      }
    }
  }
  if (wanted.empty()) return std::nullopt;
  for (const fs::path& each : folders) {
    if (auto found = findByStem(each, wanted)) return found;
  }
  return std::nullopt;
}

bool isInFolder(const std::string& path, const std::string& folder) {
  if (folder == "/") return path.starts_with('/');
  return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

}  // namespace velorin
