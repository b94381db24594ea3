// The cover picture that lies beside an album's files.
#pragma once

#include <optional>
#include <string>

namespace velorin {

/// The path of the folder's cover: a picture named "cover", "folder", "front" … before any other
/// picture, in the folder itself before its sub-folders "Covers", "Scans", "Artwork" …. Hidden
/// files are passed over, and so is a folder that cannot be read. Any thread; blocks for the disk.
std::optional<std::string> findArtwork(const std::string& folder);

}  // namespace velorin
