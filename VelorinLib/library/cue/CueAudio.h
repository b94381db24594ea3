// The audio file that a CUE sheet speaks of.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace velorin {

/// Finds a file by the name that a sheet gives it, in the spellings that the name may have, the
/// likeliest first.
///
/// The exact path counts first: below the sheet's folder, or elsewhere when the name leads there
/// with ".." or from the root; a backslash may stand for the slash. Otherwise the file may have
/// been converted since: it is the first file, by name, of the sheet's folder and of the one that
/// the name leads to, that has the same stem, whatever its case and its Unicode form, and the
/// extension of an audio file; one with the very extension of the sheet goes first. Only regular
/// files that exist are found, and no raw disc images. Returns a path without "." and "..". Any
/// thread; blocks for the disk.
std::optional<std::string> locateAudio(const std::vector<std::string>& spellings,
                                       const std::string& folder);

/// True when the path is below the folder, at any depth. Textual; both without "." and "..".
bool isInFolder(const std::string& path, const std::string& folder);

}  // namespace velorin
