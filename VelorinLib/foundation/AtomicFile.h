// Replacing a file so that a crash at any moment leaves the old content or the new one.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace velorin {

/// Writes the bytes to a temporary file beside the target (".<name>.new"), syncs it, renames it
/// over the target and syncs the folder, which is made if missing. The file is readable by its
/// owner only. A symbolic link is followed, so that the file it names is replaced.
///
/// Returns nothing on success, else one line that says what failed and why. On failure the target
/// is untouched and the temporary file is removed. One writer per target at a time; any thread
/// but the render thread; blocks for the disk.
std::optional<std::string> replaceFile(const std::filesystem::path& target, std::string_view bytes);

/// The whole content, or nothing and the reason in `failure`. Only of a regular file.
std::optional<std::string> readFile(const std::filesystem::path& path, std::string& failure);

}  // namespace velorin
