// Where the files are that come with the program.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace velorin::paths {

/// The first of these folders that holds a file of that name:
///   1. $VELORIN_RESOURCES, when it is set;
///   2. "resources" in the data folder: what this user put in the place of ours;
///   3. "resources" beside the program: a build folder, where it is a link to the source's;
///   4. "../share/velorin/resources" from the program: an installation.
/// Empty when none does. Any thread but the render thread.
std::optional<std::filesystem::path> resource(std::string_view name);

}  // namespace velorin::paths
