#include "platform/files/DirectoryWatch.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

namespace velorin {
namespace {

constexpr int kNone = -1;
// Not IN_MODIFY: what is being written is told when it is closed.
constexpr std::uint32_t kEvents = IN_ATTRIB | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE |
                                  IN_DELETE_SELF | IN_MOVED_FROM | IN_MOVED_TO | IN_MOVE_SELF |
                                  IN_EXCL_UNLINK | IN_ONLYDIR;

/// An open folder and a walk over its entries.
class FolderReader {
 public:
  explicit FolderReader(const std::string& path) : _folder(::opendir(path.c_str())) {}
  ~FolderReader() {
    if (_folder) ::closedir(_folder);
  }
  FolderReader(const FolderReader&) = delete;
  FolderReader& operator=(const FolderReader&) = delete;

  enum class Kind { folder, linkToFolder, other };
  struct Entry {
    std::string_view name;
    Kind kind;
  };

  bool hasChangedSince(const timespec& moment) const {
    struct stat status {};
    if (!_folder || ::fstat(::dirfd(_folder), &status) != 0) return false;
    const timespec& changed = status.st_mtim;
    return changed.tv_sec != moment.tv_sec ? changed.tv_sec > moment.tv_sec
                                           : changed.tv_nsec >= moment.tv_nsec;
  }

  std::optional<Entry> next() {
    const dirent* entry = nullptr;
    do {
      entry = _folder ? ::readdir(_folder) : nullptr;
      if (!entry) return std::nullopt;
    } while (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0);
    return Entry{entry->d_name, kindOf(*entry)};
  }

 private:
  Kind kindOf(const dirent& entry) const {
    if (entry.d_type == DT_DIR) return Kind::folder;
    if (entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN) return Kind::other;
    struct stat status {};
    const int at = ::dirfd(_folder);
    if (::fstatat(at, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) return Kind::other;
    if (S_ISDIR(status.st_mode)) return Kind::folder;
    const bool leadsToFolder = S_ISLNK(status.st_mode) &&
                               ::fstatat(at, entry.d_name, &status, 0) == 0 &&
                               S_ISDIR(status.st_mode);
    return leadsToFolder ? Kind::linkToFolder : Kind::other;
  }

  DIR* _folder;
};

bool isLinkToFolder(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) &&
         ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

timespec DirectoryWatch::now() noexcept {
  timespec moment{};
  ::clock_gettime(CLOCK_REALTIME_COARSE, &moment);
  return moment;
}

Result<std::unique_ptr<DirectoryWatch>, std::string> DirectoryWatch::create(
    std::vector<std::string> roots, Options options) {
  const int inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (inotify < 0) return fmt::format("inotify: {}", std::strerror(errno));
  return std::unique_ptr<DirectoryWatch>(
      new DirectoryWatch(inotify, std::move(roots), std::move(options)));
}

DirectoryWatch::DirectoryWatch(int inotify, std::vector<std::string> roots, Options options)
    : _inotify(inotify), _roots(std::move(roots)), _options(std::move(options)) {}

DirectoryWatch::~DirectoryWatch() {
  ::close(_inotify);
}

void DirectoryWatch::watchAll(Changes& changes) {
  std::vector<Place> places;
  for (const std::string& root : _roots) places.push_back({kNone, root, true});
  watchTrees(std::move(places), Tell::whatIsNew, changes);
}

std::string DirectoryWatch::pathOf(int watch) const {
  const auto found = _nodes.find(watch);
  if (found == _nodes.end()) return {};
  return pathOf(found->second.parent, found->second.name);
}

std::string DirectoryWatch::pathOf(int parent, std::string_view name) const {
  if (parent == kNone) return std::string(name);
  std::string path = pathOf(parent);
  if (!path.ends_with('/')) path += '/';
  return path.append(name);
}

int DirectoryWatch::childOf(int parent, std::string_view name) const {
  const auto& children = _nodes.at(parent).children;
  const auto found = children.find(name);
  return found == children.end() ? kNone : found->second;
}

int DirectoryWatch::watchFolder(const Place& place, Changes& changes) {
  const std::uint32_t follow = place.isLink ? 0 : IN_DONT_FOLLOW;
  const std::string path = pathOf(place.parent, place.name);
  const int watch = ::inotify_add_watch(_inotify, path.c_str(), kEvents | follow);
  if (watch < 0) {
    if (errno == ENOSPC && !_isLimitReached) _isLimitReached = changes.areLost = true;
    return kNone;
  }
  // A folder has one watch, however many ways lead to it: here loops end.
  const auto [node, isNew] = _nodes.try_emplace(watch);
  if (!isNew) return kNone;
  node->second.parent = place.parent;
  node->second.name = place.name;
  node->second.isLink = place.isLink;
  if (place.parent != kNone) _nodes.at(place.parent).children[place.name] = watch;
  return watch;
}

void DirectoryWatch::watchTrees(std::vector<Place> places, Tell tell, Changes& changes) {
  // Links wait until all else is watched, so that a folder goes by its path without links where
  // there is one.
  std::vector<Place> links;
  while (!places.empty() || !links.empty()) {
    if (_options.goesOn && !_options.goesOn()) return;
    auto& from = places.empty() ? links : places;
    const Place place = std::move(from.back());
    from.pop_back();
    if (place.parent != kNone && !_nodes.contains(place.parent)) continue;
    const int watch = watchFolder(place, changes);
    if (watch == kNone) continue;
    // Watched first and listed then: what comes in between is found twice rather than not at all.
    const std::string path = pathOf(watch);
    FolderReader reader(path);
    const bool tells = tell == Tell::everything || reader.hasChangedSince(_options.since);
    if (tells) changes.paths.insert(path);
    while (const auto entry = reader.next()) {
      const bool isFolder = entry->kind != FolderReader::Kind::other;
      if (_options.ignores && _options.ignores(entry->name, isFolder)) continue;
      if (isFolder) {
        const bool isLink = entry->kind == FolderReader::Kind::linkToFolder;
        (isLink ? links : places).push_back({watch, std::string(entry->name), isLink});
      } else if (tells) {
        changes.paths.insert(pathOf(watch, entry->name));
      }
    }
  }
}

void DirectoryWatch::drain(Changes& changes) {
  alignas(inotify_event) std::array<char, 64 * 1024> bytes;
  while (true) {
    const ssize_t count = ::read(_inotify, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    for (std::size_t at = 0; at < static_cast<std::size_t>(count);) {
      const auto& event = *reinterpret_cast<const inotify_event*>(bytes.data() + at);
      handle(event, changes);
      at += sizeof(inotify_event) + event.len;
    }
  }
  if (_hasOverflowed) startAnew(changes);
}

void DirectoryWatch::handle(const inotify_event& event, Changes& changes) {
  if (event.mask & IN_Q_OVERFLOW) {
    _hasOverflowed = true;
    return;
  }
  const auto found = _nodes.find(event.wd);
  if (found == _nodes.end()) return;
  const Node& node = found->second;
  if (event.mask & IN_IGNORED) {
    forget(event.wd);
  } else if (event.mask & (IN_UNMOUNT | IN_DELETE_SELF)) {
    changes.paths.insert(pathOf(event.wd));
    if (event.mask & IN_UNMOUNT) changes.areLost = true;
  } else if (event.mask & IN_MOVE_SELF) {
    // Of other folders the parent tells where they went.
    if (node.parent == kNone && !std::ranges::count(_roots, node.name)) return;
    if (node.parent != kNone && !node.isLink) return;
    changes.paths.insert(pathOf(event.wd));
    changes.areLost = true;
    unwatchTree(event.wd);
  } else if (event.len > 0) {
    handleEntry(event, changes);
  }
}

void DirectoryWatch::handleEntry(const inotify_event& event, Changes& changes) {
  const std::string name = event.name;
  const bool isFolder = (event.mask & IN_ISDIR) != 0;
  const int child = childOf(event.wd, name);
  if (_options.ignores && _options.ignores(name, isFolder || child != kNone)) return;
  const std::string path = pathOf(event.wd, name);
  changes.paths.insert(path);
  if ((event.mask & IN_MOVED_FROM) && child != kNone) {
    moveAway(child, event.cookie);
  } else if (event.mask & (IN_CREATE | IN_MOVED_TO)) {
    if (event.mask & IN_MOVED_TO && moveHere(event.wd, name, event.cookie, changes)) return;
    const bool isLink = !isFolder && isLinkToFolder(path);
    if (isFolder || isLink) watchTrees({{event.wd, name, isLink}}, Tell::everything, changes);
  } else if ((event.mask & IN_DELETE) && child != kNone && _nodes.at(child).isLink) {
    // What is behind the link is still there, but nobody comes to it any more.
    changes.areLost = true;
    unwatchTree(child);
  }
}

void DirectoryWatch::moveAway(int watch, std::uint32_t cookie) {
  Node& node = _nodes.at(watch);
  const std::string path = pathOf(watch);
  _nodes.at(node.parent).children.erase(node.name);
  node.parent = kNone;
  node.name = path;
  _moving[cookie] = watch;
}

bool DirectoryWatch::moveHere(int parent, const std::string& name, std::uint32_t cookie,
                              Changes& changes) {
  const auto moving = _moving.extract(cookie);
  if (moving.empty()) return false;
  const auto found = _nodes.find(moving.mapped());
  if (found == _nodes.end()) return false;
  const std::string oldPath = found->second.name;
  found->second.parent = parent;
  found->second.name = name;
  _nodes.at(parent).children[name] = found->first;
  tellMoved(found->first, oldPath, changes);
  return true;
}

void DirectoryWatch::tellMoved(int watch, const std::string& oldPath, Changes& changes) {
  const std::string newPath = pathOf(watch);
  changes.paths.insert(oldPath);
  changes.paths.insert(newPath);
  FolderReader reader(newPath);
  while (const auto entry = reader.next()) {
    if (entry->kind != FolderReader::Kind::other) continue;
    if (_options.ignores && _options.ignores(entry->name, false)) continue;
    changes.paths.insert(fmt::format("{}/{}", newPath, entry->name));
    changes.paths.insert(fmt::format("{}/{}", oldPath, entry->name));
  }
  for (const auto& [name, child] : _nodes.at(watch).children) {
    tellMoved(child, fmt::format("{}/{}", oldPath, name), changes);
  }
}

void DirectoryWatch::settle(Changes& changes) {
  for (const auto& [cookie, watch] : std::exchange(_moving, {})) {
    if (!_nodes.contains(watch)) continue;
    changes.areLost = true;
    unwatchTree(watch);
  }
}

void DirectoryWatch::forget(int watch) {
  const auto found = _nodes.find(watch);
  if (found == _nodes.end()) return;
  const Node node = std::move(found->second);
  _nodes.erase(found);
  for (const auto& [name, child] : node.children) unwatchTree(child);
  const auto parent = _nodes.find(node.parent);
  if (parent == _nodes.end()) return;
  // A new folder may have taken the name.
  const auto entry = parent->second.children.find(node.name);
  if (entry != parent->second.children.end() && entry->second == watch) {
    parent->second.children.erase(entry);
  }
}

void DirectoryWatch::unwatchTree(int watch) {
  if (!_nodes.contains(watch)) return;
  ::inotify_rm_watch(_inotify, watch);
  forget(watch);
}

void DirectoryWatch::startAnew(Changes& changes) {
  changes.areLost = true;
  // A new queue under the old descriptor: to end the watches one by one would overflow it again.
  const int fresh = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fresh < 0) return;  // the next event tries again
  _hasOverflowed = false;
  _nodes.clear();
  _moving.clear();
  ::dup3(fresh, _inotify, O_CLOEXEC);
  ::close(fresh);
  watchAll(changes);
}

}  // namespace velorin
