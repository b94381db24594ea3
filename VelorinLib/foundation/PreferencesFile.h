// The file behind the preference store, which several processes share.
//
// The file is replaced as a whole, under a lock of its own (".<name>.lock" beside it, flock). A
// value that is large in itself, such as the queue of a long session, lives in a file of its own in
// "<name>.values", and the store's file names it: a change of a small value then costs no more than
// the small values. Such files are never changed: another value is another file, which is complete
// on disk before the store's file names it, and is removed when that no longer does.
#pragma once

#include <fcntl.h>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "foundation/FileDescriptor.h"
#include "foundation/Preferences.h"

namespace velorin {

/// A value of the store. Copies share the value, which does not change.
struct StoredPreference {
  std::shared_ptr<const PreferenceValue> value;  ///< empty: not read yet from the file `aside`
  std::string aside;                             ///< the file in "<name>.values"; empty: none
};
using StoredPreferences = std::map<std::string, StoredPreference, std::less<>>;

/// Nothing in here locks threads against each other; readAside() may run beside the rest.
class PreferencesFile {
 public:
  explicit PreferencesFile(std::filesystem::path path);

  /// Whether the file is another one than it was at the last read() or write(). Costs a system
  /// call.
  bool changedByOthers() const { return stampOf(AT_FDCWD, _path.c_str()) != _stamp; }

  struct Missing {};
  struct Unusable {
    std::string reason;
  };
  /// What the file holds; large values are left where they are.
  std::variant<StoredPreferences, Missing, Unusable> read();

  /// Keeps other processes from writing while it lives. Where the lock cannot be had within a
  /// second, or not at all, that is said in the log, once for each cause, and the write goes on
  /// without it.
  class Lock {
   public:
    bool isHeld() const noexcept { return static_cast<bool>(_file); }

   private:
    friend class PreferencesFile;
    FileDescriptor _file;
  };
  Lock lock();

  /// Replaces the file. Gives large values their files and sets their `aside`; drops what is
  /// nowhere any more. Returns why it could not be done; then nothing has changed.
  std::optional<std::string> write(StoredPreferences& values, const Lock& lock);

  /// Empty when there is no such file, or it holds no value.
  std::optional<PreferenceValue> readAside(const std::string& name) const;

  /// Renames an unusable file to "<name>.damaged-<UTC time>". False when even that fails; both are
  /// logged.
  bool setAside(const std::string& reason);

 private:
  /// Tells two contents of the file apart: each write makes a new inode, whose number is not given
  /// away again while _known holds it; who edits the file in place changes the time.
  struct Stamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;
    std::int64_t size = -1;
    bool operator==(const Stamp&) const = default;
  };

  /// Of the path below an open folder, or of what is open where the path is empty.
  static Stamp stampOf(int folder, const char* path);
  void remember();
  std::optional<std::string> writeAside(StoredPreferences& values,
                                        std::vector<std::string>& written) const;
  void removeUnused(const StoredPreferences& values) const;
  std::filesystem::path pathOfAside(const std::string& name) const { return _asides / name; }

  const std::filesystem::path _path;
  std::filesystem::path _asides;
  std::filesystem::path _lockPath;
  FileDescriptor _known;
  Stamp _stamp;
  std::string _lockTrouble;
};

}  // namespace velorin
