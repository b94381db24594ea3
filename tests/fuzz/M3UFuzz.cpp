// Any bytes are a list of absolute paths; a path that is written comes back among the readings of
// its line.

#include <algorithm>
#include <cstdlib>

#include "foundation/Text.h"
#include "library/playlists/M3UManager.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  using velorin::M3UManager;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto require = [](bool condition) {
    if (!condition) std::abort();
  };
  const auto isAbsolute = [](const std::string& path) {
    return path.starts_with('/') && path.find('\0') == std::string::npos;
  };
  for (const auto& entry : M3UManager::parse(bytes, false, "/base")) {
    require(isAbsolute(entry.path) && velorin::text::validUTF8(entry.path));
    for (const std::string& path : entry.otherPaths) {
      require(isAbsolute(path));
      // White space at the ends of a line is none of the path's.
      if (velorin::text::trimWhitespaceAndNewlines(path) != path) continue;
      const auto text = M3UManager::exportText({{path, 1, "a", "t"}});
      const auto back = M3UManager::parse(text, true, "/");
      require(back.size() == 1);
      const auto& others = back[0].otherPaths;
      require(back[0].path == path ||
              std::find(others.begin(), others.end(), path) != others.end());
    }
  }
  return 0;
}
