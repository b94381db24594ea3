// What an enumeration knows of a path.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "library/queries/PathPrefix.h"
#include "library/scan/FolderEnumeration.h"

namespace velorin {

/// A view of the folders that were enumerated, which outlive it. Any number of threads.
class Listing {
 public:
  explicit Listing(const EnumeratedFolders& found) : _found(found) {
    for (const FolderEnumResult& folder : found.folders) {
      _cueSheets.insert(folder.cueFiles.begin(), folder.cueFiles.end());
      if (folder.isWhole()) _roots.emplace_back(folder.folder);
      for (const UnseenFolder& unseen : folder.unseen) _unseen.insert(unseen.path);
    }
  }

  std::size_t size() const { return _found.audioCount() + _cueSheets.size(); }

  std::optional<std::int64_t> stampOf(std::string_view path) const {
    for (const FolderEnumResult& folder : _found.folders) {
      if (const auto stamp = folder.audioFiles.find(path)) return stamp;
    }
    return std::nullopt;
  }

  bool holds(std::string_view path) const {
    return stampOf(path) || (!_cueSheets.empty() && _cueSheets.contains(std::string(path)));
  }

  /// True for a file that would have been found if it were there.
  bool wasLookedFor(std::string_view path) const {
    if (std::ranges::none_of(_roots, [&](const PathPrefix& root) { return root.contains(path); })) {
      return false;
    }
    if (_unseen.empty()) return true;
    for (; !path.empty(); path = path.substr(0, path.rfind('/'))) {
      if (_unseen.contains(std::string(path))) return false;
    }
    return true;
  }

 private:
  const EnumeratedFolders& _found;
  std::unordered_set<std::string> _cueSheets;
  std::vector<PathPrefix> _roots;
  std::unordered_set<std::string> _unseen;
};

}  // namespace velorin
