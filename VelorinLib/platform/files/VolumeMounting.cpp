#include "platform/files/VolumeMounting.h"

#include <unistd.h>

#include <fstream>
#include <functional>
#include <sstream>

#include "platform/files/MountTable.h"

namespace velorin {
namespace {

struct FstabLine {
  std::string point;
  std::string options;
};

void readFstab(const std::string& fstab, const std::function<void(const FstabLine&)>& tell) {
  std::ifstream table(fstab);
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string source, point, type, options;
    fields >> source >> point >> type >> options;
    if (source.starts_with('#') || !point.starts_with('/')) continue;
    tell({unescapeMountField(point), options});
  }
}

bool mayBeMountedByUser(const std::string& options) {
  if (::geteuid() == 0) return true;
  std::istringstream list(options);
  for (std::string option; std::getline(list, option, ',');) {
    if (option == "user" || option == "users" || option == "owner" || option == "group") {
      return true;
    }
  }
  return false;
}

bool holds(const std::string& folder, const std::string& path) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace

std::string fstabPointOf(const std::string& fstab, const std::string& path) {
  std::string deepest;
  readFstab(fstab, [&](const FstabLine& line) {
    if (line.point.size() > deepest.size() && line.point != "/" && holds(line.point, path)) {
      deepest = line.point;
    }
  });
  return deepest;
}

std::vector<std::vector<std::string>> mountCommands(const VolumeAddress& volume,
                                                    const std::string& fstab) {
  std::vector<std::vector<std::string>> commands;
  bool isByFstab = false;
  readFstab(fstab, [&](const FstabLine& line) {
    if (line.point == volume.mountPoint && mayBeMountedByUser(line.options)) isByFstab = true;
  });
  if (isByFstab) commands.push_back({"mount", volume.mountPoint});
  if (!volume.url.empty()) {
    commands.push_back({"gio", "mount", "--", volume.url});
  } else if (!volume.uuid.empty()) {
    commands.push_back({"gio", "mount", "-d", volume.uuid});
  }
  return commands;
}

}  // namespace velorin
