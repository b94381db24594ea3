#include "foundation/Resources.h"

#include <cstdlib>
#include <system_error>
#include <vector>

#include "foundation/Paths.h"

namespace velorin::paths {

namespace fs = std::filesystem;

std::optional<fs::path> resource(std::string_view name) {
  std::vector<fs::path> folders;
  if (const char* chosen = std::getenv("VELORIN_RESOURCES"); chosen != nullptr && *chosen != '\0') {
    folders.emplace_back(chosen);
  }
  folders.push_back(dataDirectory() / "resources");
  std::error_code error;
  if (const fs::path program = fs::read_symlink("/proc/self/exe", error); !error) {
    folders.push_back(program.parent_path() / "resources");
    folders.push_back(program.parent_path().parent_path() / "share/velorin/resources");
  }
  for (const fs::path& folder : folders) {
    const fs::path file = folder / name;
    if (fs::is_regular_file(file, error)) return file;
  }
  return std::nullopt;
}

}  // namespace velorin::paths
