// From what was typed on the command line to the tracks to play.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/TrackInfo.h"

namespace velorin {

/// One thing to play: a file of which nothing was read yet, or a part of a sheet.
struct PlayListEntry {
  std::string path;               ///< of the audio file, native bytes
  std::optional<TrackInfo> info;  ///< what the sheet tells; empty for a plain file
};

struct PlayList {
  std::vector<PlayListEntry> entries;
  /// One line for each argument that could not be used: what is wrong and what to do.
  std::vector<std::string> problems;
};

/// Each argument by its kind, the extension's case aside:
///   a folder    the supported files in it and in its sub-folders, ordered by naturalLess; where a
///               ".cue" sheet lies beside its audio file, the sheet's tracks in place of the file
///   a ".cue"    its tracks
///   ".m3u(8)"   the files and sheets that it lists, relative to where it lies
///   a file      itself; whether it can be played is for the decoder to say when its turn comes
/// Hidden files and folders inside a folder, and playlists there, are passed over; links to folders
/// are followed, each folder once. Names are bytes and need not be UTF-8. Reads folders, sheets and
/// lists, but of audio files only those that sheets speak of.
PlayList expandInputs(const std::vector<std::filesystem::path>& inputs);

/// What the player takes: reads the tags of a plain file.
TrackInfo trackOf(const PlayListEntry& entry);

/// Orders names as people do: "Track 2" before "Track 10", letter case aside (ASCII); names that
/// are equal so are ordered by their bytes.
bool naturalLess(std::string_view a, std::string_view b) noexcept;

}  // namespace velorin
