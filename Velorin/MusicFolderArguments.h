// Folders as they are given on the command line, and whether the library can take them.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace velorin {

/// The path as the library keeps it: absolute, without "." and "..", without a '/' at its end.
/// Links stay as they were given.
std::string musicFolderPath(const std::filesystem::path& given);

/// Why the folder cannot be added beside those that are music folders already, or nothing. One
/// line, which says what to do.
std::optional<std::string> whyNotAdded(const std::string& folder,
                                       const std::vector<std::string>& musicFolders);

}  // namespace velorin
