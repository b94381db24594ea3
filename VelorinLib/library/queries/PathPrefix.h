// The files below a folder as a range of the index on tracks.filePath.
//
// Paths are native bytes: they may be no UTF-8, and "/Music" and "/music" are two folders. LIKE
// would mix the two, since it folds the case of A to Z, and would read every path of the library.
// All paths below "/m/Rock" sort behind "/m/Rock/" and before "/m/Rock0", because '0' is the byte
// after '/'; so a statement says
//
//     filePath > ? AND filePath < ?      with begin() and end()
//
// which is exact to the byte and served by the index.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velorin {

/// A plain value, any thread but the render thread.
class PathPrefix {
 public:
  /// A '/' is put behind the folder's path when there is none; an empty path is the root "/".
  explicit PathPrefix(std::string_view folder);

  /// The path with its '/', which also begins the path of everything inside.
  const std::string& begin() const noexcept { return _begin; }
  /// The first text that is above all paths inside.
  const std::string& end() const noexcept { return _end; }
  /// The path without the '/' at its end, as music folders are kept; the root is "/".
  std::string folder() const {
    return _begin.size() == 1 ? _begin : _begin.substr(0, _begin.size() - 1);
  }

  /// Where, in SQLite's substr(), the part of a path behind this prefix starts. SQLite counts from
  /// 1, and characters: a byte of 0xC0 or above with all bytes 0x80 to 0xBF behind it is one, any
  /// other byte is one, valid UTF-8 or not.
  std::int64_t restPosition() const noexcept;

  /// True for a path inside this folder, at any depth.
  bool contains(std::string_view path) const noexcept {
    return path.size() > _begin.size() && path.starts_with(_begin);
  }

  bool operator==(const PathPrefix& other) const { return _begin == other._begin; }

 private:
  std::string _begin;
  std::string _end;
};

}  // namespace velorin
