// What the names of folders and files tell where tags are silent.
//
// All of these are pure; names are native bytes, what they return is valid UTF-8. A name of any
// length takes time in proportion to it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/ScannedItem.h"

namespace velorin {

struct FolderHints {
  std::optional<std::string> artist;
  std::optional<std::string> album;
  std::optional<int> year;

  bool operator==(const FolderHints&) const = default;
};

/// The name without what describes the recording's form: "FLAC", "24bit", "96kHz", "Vinyl" …
std::string stripTechnicalTags(std::string_view name);

/// "Artist - Album (2001)", "2001 - Album", "Album [2001]", "Album 2001" …; the parent folder,
/// where it is given, is the artist and wins over what stands left of the separator.
FolderHints parseFolderName(std::string_view folder,
                            const std::optional<std::string>& parent = std::nullopt);

/// What the two folders above a file tell. A watched root's own name, and what lies above it, say
/// nothing.
FolderHints folderHints(const std::string& path, const std::vector<std::string>& watchedRoots);

/// The edition that a folder's name tells in brackets and the album's title does not: "Deluxe
/// Edition" of "Album [Deluxe Edition]".
std::optional<std::string> editionHint(std::string_view folder, std::string_view albumTitle);

/// Fills what is unknown in the item from the names of its file and of the two folders above it,
/// and adds an edition to the album's title.
void applyFolderHints(ScannedItem& item, const std::string& path,
                      const std::vector<std::string>& watchedRoots);

}  // namespace velorin
