// The parts of a path, as views of its bytes.
#pragma once

#include <string_view>

namespace velorin {

/// What follows the last slash: "c.flac" of "/a/b/c.flac".
inline std::string_view fileName(std::string_view path) noexcept {
  return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

/// The name without its extension. A dot that begins the name begins no extension.
inline std::string_view fileStem(std::string_view path) noexcept {
  const std::string_view name = fileName(path);
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos || dot == 0 ? name : name.substr(0, dot);
}

/// The folder that holds it: "/a/b" of "/a/b/c.flac", "/" of "/a", empty where none is named.
inline std::string_view parentFolder(std::string_view path) noexcept {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  std::string_view folder = path.substr(0, slash);
  while (folder.ends_with('/')) folder.remove_suffix(1);
  return folder.empty() ? path.substr(0, 1) : folder;
}

}  // namespace velorin
