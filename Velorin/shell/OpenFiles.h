// Which files are opened when others hand us files and folders.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velorin {

/// True for the extensions of files that the player opens one by one, in any case: what it has a
/// decoder for, and CUE sheets. Pure.
bool isOpenable(std::string_view path);

/// What came of the paths that were handed over.
struct FilesToOpen {
  std::vector<std::filesystem::path> files;
  /// One line for each path that yields nothing: what is wrong and what to do.
  std::vector<std::string> problems;
};

/// Why the path cannot be opened and what to do, in one line; nothing for a folder that is there,
/// an openable file and a playlist. Looks at the path alone.
std::optional<std::string> problemWith(const std::filesystem::path& path);

/// The path without "." and "..", from the present folder on: what another process can use.
std::filesystem::path absolutePath(const std::filesystem::path& path);

/// The files in the order given; an M3U playlist stands for the files that it names, a folder for
/// the openable files in it and below, by the order of their paths in the listener's language.
/// Hidden files and folders inside a folder are passed over; a folder that several links lead to is
/// entered once. Blocks for the file system.
FilesToOpen filesToOpen(const std::vector<std::filesystem::path>& paths);

/// The same, with all files in the order of their paths.
FilesToOpen sortedFilesToOpen(const std::vector<std::filesystem::path>& paths);

/// Calls one of the two on a thread of its own, which is left behind while a file system does not
/// answer, and `found` on the main thread. Main thread.
void findFilesToOpen(std::vector<std::filesystem::path> paths, bool sorted,
                     std::function<void(FilesToOpen)> found);

}  // namespace velorin
