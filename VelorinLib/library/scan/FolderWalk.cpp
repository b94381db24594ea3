#include "library/scan/FolderWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <memory>
#include <unordered_set>
#include <vector>

#include "library/queries/FileStamp.h"

namespace velorin {
namespace {

struct FolderIdentity {
  dev_t device;
  ino_t inode;
  bool operator==(const FolderIdentity&) const = default;
};

struct HashIdentity {
  std::size_t operator()(const FolderIdentity& id) const noexcept {
    return static_cast<std::size_t>((id.inode * 0x9E3779B97F4A7C15U) ^ id.device);
  }
};

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};
using OpenFolder = std::unique_ptr<DIR, CloseFolder>;

/// Gone since its name was read: nothing that is there is overlooked.
bool isGone(int error) {
  return error == ENOENT || error == ENOTDIR;
}

class Walk {
 public:
  explicit Walk(FolderVisitor& visitor) : _visitor(visitor) {}

  void run(const std::string& root) {
    _pending.push_back(root);
    while (_going && !(_pending.empty() && _linked.empty())) {
      // Links last: what can be reached without one is known by the path without.
      if (_pending.empty()) {
        _pending.push_back(std::move(_linked.front()));
        _linked.pop_front();
      }
      const std::string folder = std::move(_pending.back());
      _pending.pop_back();
      list(folder, folder == root);
    }
  }

 private:
  void list(const std::string& path, bool isRoot) {
    if (!go(_visitor.step())) return;
    // O_NONBLOCK: a pipe that took the folder's place must not hold us up.
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
      if (isRoot || !isGone(errno)) _visitor.unseen({path, errno});
      return;
    }
    struct stat status {};
    if (::fstat(descriptor, &status) == 0 &&
        !_walked.insert({status.st_dev, status.st_ino}).second) {
      ::close(descriptor);
      return;
    }
    const OpenFolder folder(::fdopendir(descriptor));
    if (!folder) {
      _visitor.unseen({path, errno});
      ::close(descriptor);
      return;
    }
    readEntries(folder.get(), path);
  }

  void readEntries(DIR* folder, const std::string& path) {
    _path = path;
    if (!_path.ends_with('/')) _path += '/';
    _nameAt = _path.size();
    const std::size_t firstInside = _pending.size();
    _isUnseen = false;
    for (;;) {
      errno = 0;
      const dirent* const entry = ::readdir(folder);
      if (entry == nullptr) {
        if (errno != 0) tellUnseen(errno);
        break;
      }
      if (!go(_visitor.step())) return;
      take(::dirfd(folder), *entry);
      if (!_going) return;
    }
    // From the back: in the order of their names.
    std::sort(_pending.begin() + static_cast<std::ptrdiff_t>(firstInside), _pending.end(),
              std::greater<>());
  }

  void take(int folder, const dirent& entry) {
    const std::string_view name = entry.d_name;
    if (name.starts_with('.')) return;
    _path.resize(_nameAt);
    _path += name;
    const auto kind = kindOfFile(name);
    switch (entry.d_type) {
      case DT_DIR:
        return takeFolder(name, _pending);
      case DT_REG:
        if (kind) takeFile(folder, entry.d_name, *kind);
        return;
      case DT_LNK:
        return takeLink(folder, entry.d_name, kind);
      case DT_UNKNOWN:
        return takeUnknown(folder, entry.d_name, kind);
      default:
        return;
    }
  }

  template <class Folders>
  void takeFolder(std::string_view name, Folders& folders) {
    if (!isPassedOver(name)) folders.push_back(_path);
  }

  void takeFile(int folder, const char* name, FileKind kind) {
    struct stat status {};
    if (::fstatat(folder, name, &status, 0) != 0) {
      if (!isGone(errno)) tellUnseen(errno);
      return;
    }
    if (S_ISREG(status.st_mode)) tellFile(status, kind);
  }

  void takeLink(int folder, const char* name, std::optional<FileKind> kind) {
    struct stat status {};
    if (::fstatat(folder, name, &status, 0) != 0) {
      // It may lead to a volume that is not there now.
      _visitor.unseen({_path, errno});
    } else if (S_ISDIR(status.st_mode)) {
      takeFolder(name, _linked);
    } else if (S_ISREG(status.st_mode) && kind) {
      tellFile(status, *kind);
    }
  }

  /// Of a file system that does not say with the name what it is the name of.
  void takeUnknown(int folder, const char* name, std::optional<FileKind> kind) {
    struct stat status {};
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      if (!isGone(errno)) tellUnseen(errno);
    } else if (S_ISLNK(status.st_mode)) {
      takeLink(folder, name, kind);
    } else if (S_ISDIR(status.st_mode)) {
      takeFolder(name, _pending);
    } else if (S_ISREG(status.st_mode) && kind) {
      tellFile(status, *kind);
    }
  }

  void tellFile(const struct stat& status, FileKind kind) {
    go(_visitor.file({.path = _path, .kind = kind, .stamp = stampOf(status)}));
  }

  /// Something in the folder that is being read could not be looked at; told once.
  void tellUnseen(int error) {
    if (_isUnseen) return;
    _isUnseen = true;
    _visitor.unseen({_path.substr(0, std::max<std::size_t>(_nameAt - 1, 1)), error});
  }

  bool go(bool on) {
    _going = _going && on;
    return _going;
  }

  FolderVisitor& _visitor;
  bool _going = true;
  std::vector<std::string> _pending;  ///< folders to walk, the next one at the back
  std::deque<std::string> _linked;    ///< folders behind links
  std::unordered_set<FolderIdentity, HashIdentity> _walked;

  // The folder that is being read.
  std::string _path;        ///< of its current entry
  std::size_t _nameAt = 0;  ///< where the entry's name begins in it
  bool _isUnseen = false;
};

}  // namespace

std::int64_t stampOf(const struct stat& status) {
  const auto sinceEpoch = std::chrono::seconds(status.st_mtim.tv_sec) +
                          std::chrono::milliseconds(status.st_mtim.tv_nsec / 1'000'000);
  constexpr std::int64_t kLatest = 9'000'000'000;
  if (status.st_mtim.tv_sec > kLatest || status.st_mtim.tv_sec < -kLatest) {
    return fileStamp(status.st_size, std::nullopt);
  }
  return fileStamp(status.st_size, std::chrono::system_clock::time_point(sinceEpoch));
}

void walkFolder(const std::string& folder, FolderVisitor& visitor) {
  Walk(visitor).run(folder);
}

}  // namespace velorin
