// What `velorin tag` is told to change, out of words.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "library/metadata/TagChanges.h"

namespace velorin {

/// Adds "key=value" of --set, or the key of --clear, to the changes. Returns what is wrong with it,
/// in one line, or nothing. An empty value removes the field. Pure.
std::optional<std::string> addSet(std::string_view assignment, TagChanges& changes);
std::optional<std::string> addClear(std::string_view key, TagChanges& changes);

/// "title, artist, album …".
std::string tagKeyList();

}  // namespace velorin
