// A large table from paths and library keys to whole numbers, kept small.
//
// A scan holds the paths of the whole library. As a hash map of strings they take some 150 bytes
// each; here a file's name is kept once, its folder is shared with the files before it, and both
// lie in a few large blocks.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velorin {

/// Filled once, then read; many threads may read it at a time. Keys are compared as bytes.
class PathTable {
 public:
  /// Room for so many keys.
  void reserve(std::size_t count);

  /// Adds a path, or with `isCue` the key of a CUE track (see libraryKey). One that is there
  /// already keeps its value. Keys of one folder that follow each other share its text.
  void insert(std::string_view key, bool isCue, std::int64_t value);

  std::optional<std::int64_t> find(std::string_view key) const noexcept;
  bool contains(std::string_view key) const noexcept { return find(key).has_value(); }

  std::size_t size() const noexcept { return _entries.size(); }
  bool empty() const noexcept { return _entries.empty(); }

  /// Calls use(path, value) for each key, in the order in which they were added; of a CUE track's
  /// key the path alone. The text is valid during the call.
  template <class Use>
  void forEach(Use&& use) const {
    std::string path;
    for (const Entry& entry : _entries) {
      path.assign(_folders[entry.folder]).append(nameOf(entry));
      if (entry.isCue != 0) path.resize(path.rfind('|'));
      use(std::string_view(path), entry.value);
    }
  }

  /// Calls use(path) for each key, in the order in which they were added, until it returns false.
  /// Returns what it returned last.
  template <class Use>
  bool forEachWhile(Use&& use) const {
    std::string path;
    for (const Entry& entry : _entries) {
      path.assign(_folders[entry.folder]).append(nameOf(entry));
      if (!use(std::string_view(path))) return false;
    }
    return true;
  }

  /// Calls use(path) for each key of a CUE track.
  template <class Use>
  void forEachCue(Use&& use) const {
    std::string path;
    for (const Entry& entry : _entries) {
      if (entry.isCue == 0) continue;
      path.assign(_folders[entry.folder]).append(nameOf(entry));
      path.resize(path.rfind('|'));
      use(std::string_view(path));
    }
  }

 private:
  struct Entry {
    const char* name;
    std::uint32_t folder;  ///< place in _folders
    std::uint32_t nameLength : 31;
    std::uint32_t isCue : 1;
    std::int64_t value;
  };

  static std::string_view nameOf(const Entry& entry) { return {entry.name, entry.nameLength}; }
  /// Of an entry that has this key, or of a free place.
  std::size_t slotOf(std::string_view key) const noexcept;
  void spread(std::size_t slots);
  std::string_view keep(std::string_view text);

  std::vector<Entry> _entries;
  std::vector<std::string_view> _folders;  ///< each with its '/'
  std::vector<std::uint32_t> _slots;       ///< by hash; place in _entries plus 1, or 0 for free
  std::vector<std::unique_ptr<char[]>> _blocks;
  std::size_t _freeInBlock = 0;  ///< bytes at the end of the last block
  char* _free = nullptr;
};

}  // namespace velorin
