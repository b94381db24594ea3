#include "platform/files/MountTable.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <iterator>
#include <optional>

namespace velorin {
namespace {

constexpr std::array<std::string_view, 23> kNetworkFileSystems{
    "9p",     "afs",    "afpfs", "beegfs", "ceph",   "cifs",     "coda",     "glusterfs",
    "gpfs",   "lustre", "ncpfs", "nfs",    "nfs4",   "ocfs2",    "orangefs", "panfs",
    "prl_fs", "pvfs2",  "smb3",  "smbfs",  "vboxsf", "virtiofs", "vmhgfs"};

/// The next field of a line, which ends at a blank.
std::string_view takeField(std::string_view& line) {
  const std::size_t end = std::min(line.find(' '), line.size());
  const std::string_view field = line.substr(0, end);
  line.remove_prefix(std::min(end + 1, line.size()));
  return field;
}

bool isOctal(char digit) {
  return digit >= '0' && digit <= '7';
}

bool readNumber(std::string_view field, int& number) {
  const auto [stop, error] = std::from_chars(field.data(), field.data() + field.size(), number);
  return error == std::errc() && stop == field.data() + field.size();
}

std::optional<Mount> mountFrom(std::string_view line) {
  Mount mount;
  if (!readNumber(takeField(line), mount.id)) return std::nullopt;
  if (!readNumber(takeField(line), mount.parentId)) return std::nullopt;
  mount.device = takeField(line);
  mount.root = unescapeMountField(takeField(line));
  mount.point = unescapeMountField(takeField(line));
  takeField(line);  // options of the mount
  // Any number of optional fields, then a dash.
  while (!line.empty() && takeField(line) != "-") {
  }
  mount.fileSystem = unescapeMountField(takeField(line));
  mount.source = unescapeMountField(takeField(line));
  if (!mount.point.starts_with('/') || mount.fileSystem.empty()) return std::nullopt;
  return mount;
}

}  // namespace

bool isLocal(const Mount& mount) noexcept {
  const std::string_view type = mount.fileSystem;
  if (type == "fuseblk") return mount.source.starts_with("/dev/");
  if (type == "fuse" || type.starts_with("fuse.") || isAutomount(mount)) return false;
  return std::ranges::find(kNetworkFileSystems, type) == kNetworkFileSystems.end();
}

bool isAutomount(const Mount& mount) noexcept {
  return mount.fileSystem == "autofs";
}

std::string unescapeMountField(std::string_view field) {
  std::string text;
  text.reserve(field.size());
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size() && isOctal(field[i + 1]) &&
        isOctal(field[i + 2]) && isOctal(field[i + 3])) {
      text += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                (field[i + 3] - '0'));
      i += 3;
    } else {
      text += field[i];
    }
  }
  return text;
}

MountTable MountTable::parse(std::string_view mountInfo) {
  MountTable table;
  while (!mountInfo.empty()) {
    const std::size_t end = std::min(mountInfo.find('\n'), mountInfo.size());
    if (auto mount = mountFrom(mountInfo.substr(0, end)))
      table._mounts.push_back(std::move(*mount));
    mountInfo.remove_prefix(std::min(end + 1, mountInfo.size()));
  }
  return table;
}

MountTable MountTable::current() {
  std::ifstream file("/proc/self/mountinfo", std::ios::binary);
  return parse(std::string(std::istreambuf_iterator<char>(file), {}));
}

const Mount* MountTable::mountOf(std::string_view path) const {
  const auto isKnown = [&](int id) {
    return std::ranges::any_of(_mounts, [&](const Mount& each) { return each.id == id; });
  };
  const Mount* holder = nullptr;
  // Enters what is mounted at a point on the way, and what is mounted on top of that.
  const auto enter = [&](std::string_view point) {
    for (std::size_t depth = 0; depth <= _mounts.size(); ++depth) {
      const auto found = std::find_if(_mounts.rbegin(), _mounts.rend(), [&](const Mount& each) {
        if (each.point != point || &each == holder) return false;
        if (holder) return each.parentId == holder->id;
        return each.parentId == each.id || !isKnown(each.parentId);
      });
      if (found == _mounts.rend()) return;
      holder = &*found;
    }
  };
  if (!path.starts_with('/')) return nullptr;
  enter("/");
  for (std::size_t end = path.find('/', 1); path.size() > 1; end = path.find('/', end + 1)) {
    enter(path.substr(0, end));
    if (end == path.npos) break;
  }
  return holder;
}

}  // namespace velorin
