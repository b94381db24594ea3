// What a scan looks at: which files, and which folders it does not enter.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velorin {

enum class FileKind { audio, cueSheet, playlist };

/// The extensions that a scan takes, in lower case. An Ogg file is not scanned, though it can be
/// opened from outside the library.
inline constexpr std::array<std::string_view, 16> kSupportedExtensions{
    "flac", "alac", "aiff", "aif",  "wav", "m4a", "mp3", "dsf",
    "dff",  "ape",  "wv",   "opus", "caf", "cue", "m3u", "m3u8"};

/// What a file is by its extension, in any case; nothing for a file that is not scanned. Takes a
/// name or a path. Pure.
std::optional<FileKind> kindOfFile(std::string_view name) noexcept;

/// True for the name of a folder that a scan does not enter: a hidden one, or one in which servers
/// and systems keep what is none of the listener's. Pure.
bool isPassedOver(std::string_view folderName) noexcept;

/// True when a scan of one of these folders would come to the file, as far as its path tells: it
/// is inside one, and no component below it is hidden or passed over. Pure.
bool isReachable(std::string_view path, const std::vector<std::string>& folders) noexcept;

}  // namespace velorin
