// From what was typed on the command line to the files to play.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace velorin {

struct PlayList {
  std::vector<std::filesystem::path> files;
  /// One line for each argument that could not be used: what is wrong and what to do.
  std::vector<std::string> problems;
};

/// A file stands for itself, a folder for the supported files in it and in its sub-folders,
/// ordered by naturalLess. Hidden files and folders inside a folder are passed over; links to
/// folders are followed, each folder once. Names are bytes and need not be UTF-8.
PlayList expandInputs(const std::vector<std::filesystem::path>& inputs);

/// Orders names as people do: "Track 2" before "Track 10", letter case aside (ASCII); names that
/// are equal so are ordered by their bytes.
bool naturalLess(std::string_view a, std::string_view b) noexcept;

}  // namespace velorin
