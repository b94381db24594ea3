// Folders watched with everything below them, through one inotify queue.
//
// inotify(7) watches single folders. What is added here: sub-folders are watched as they appear,
// with what they hold already told; watches follow folders that are moved; links to folders are
// followed, each folder once; and when the kernel's queue overflows all is set up anew.
#pragma once

#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "foundation/Result.h"

struct inotify_event;

namespace velorin {

/// One thread at a time; only `watchAll` with a large tree takes long.
class DirectoryWatch {
 public:
  struct Changes {
    std::set<std::string> paths;
    bool areLost = false;  ///< not all that changed is among the paths

    bool empty() const noexcept { return paths.empty() && !areLost; }
  };

  struct Options {
    /// True for names of files and folders that are nobody's concern. A root is never asked about.
    std::function<bool(std::string_view name, bool isFolder)> ignores = {};
    /// Called before each folder; false ends the work early. Empty: never.
    std::function<bool()> goesOn = {};
    /// What changed in a folder from this moment on, before it was watched, is told.
    timespec since = now();
  };

  /// By the clock that folders are stamped with.
  static timespec now() noexcept;

  /// The error is one line. Nothing is watched yet. A root may be a link, lie inside another one,
  /// or not be there, in which case it is passed over.
  static Result<std::unique_ptr<DirectoryWatch>, std::string> create(std::vector<std::string> roots,
                                                                     Options options);
  ~DirectoryWatch();
  DirectoryWatch(const DirectoryWatch&) = delete;
  DirectoryWatch& operator=(const DirectoryWatch&) = delete;

  /// Watches all roots.
  void watchAll(Changes& changes);

  /// Becomes readable when there is something to drain. Stays the same.
  int descriptor() const noexcept { return _inotify; }

  /// Takes in all that happened so far; returns at once when that is nothing.
  void drain(Changes& changes);

  /// Tells the folders that were moved away, not to another place among the watched. A move comes
  /// in two parts: call it a moment after `drain`.
  void settle(Changes& changes);

  std::size_t folderCount() const noexcept { return _nodes.size(); }
  /// The user's limit of watches was reached: changes in some folders are not seen.
  bool isLimitReached() const noexcept { return _isLimitReached; }

 private:
  /// A watched folder. Its path is that of its parent and its name; of a root the name is the path.
  struct Node {
    int parent = -1;
    std::string name;
    bool isLink = false;
    std::map<std::string, int, std::less<>> children;
  };
  struct Place {
    int parent;
    std::string name;
    bool isLink;
  };
  enum class Tell { everything, whatIsNew };

  DirectoryWatch(int inotify, std::vector<std::string> roots, Options options);

  std::string pathOf(int watch) const;
  std::string pathOf(int parent, std::string_view name) const;
  int childOf(int parent, std::string_view name) const;
  void watchTrees(std::vector<Place> places, Tell tell, Changes& changes);
  /// Watches one folder. Returns its new watch, or -1 when there is none to be had, or it is
  /// watched already.
  int watchFolder(const Place& place, Changes& changes);
  void handle(const inotify_event& event, Changes& changes);
  void handleEntry(const inotify_event& event, Changes& changes);
  void moveAway(int watch, std::uint32_t cookie);
  bool moveHere(int parent, const std::string& name, std::uint32_t cookie, Changes& changes);
  void tellMoved(int watch, const std::string& oldPath, Changes& changes);
  /// The watch is gone already.
  void forget(int watch);
  /// Ends the watches of a folder with all below it.
  void unwatchTree(int watch);
  void startAnew(Changes& changes);

  const int _inotify;
  const std::vector<std::string> _roots;
  const Options _options;
  std::unordered_map<int, Node> _nodes;  // by watch
  std::map<std::uint32_t, int> _moving;  // watches by cookie; as long, their nodes are roots
  bool _hasOverflowed = false;
  bool _isLimitReached = false;
};

}  // namespace velorin
