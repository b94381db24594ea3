// What a start of the program says to the player that runs already, and what it answers.
//
// One line of JSON each way over a local socket:
//   {"velorin":1,"action":"playNext","paths":["/music/a%20b.flac"]}
//   {"velorin":1,"ok":true,"text":"2 files play next"}
// "velorin" is the version of the language. Paths are absolute; their bytes, and those of
// "words", need not be UTF-8, so that every byte but letters, digits, "/" and "-._~" is written as
// in a URL (RFC 3986, 2.1).
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Result.h"

namespace velorin {

/// What the player is asked to do.
enum class InstanceAction {
  open,       ///< paths: play them in their order; without any only say that a player runs
  playNow,    ///< paths, as the three below: sorted, with what folders hold
  playNext,   ///< after the track that plays
  playLater,  ///< behind all others
  play,
  pause,
  playPause,
  stop,
  next,
  previous,
  set,             ///< words: a setting and its value or values, see ControlSettings.h
  foldersChanged,  ///< another program added music folders to the library, or removed some
  status,          ///< answers with a JSON object as its text, see PlayerStatus.h
  path,            ///< the same with the signal path, see PathReport.h
  quit,
};

/// "open", "playNow" …, "playPause" …
std::string_view nameOf(InstanceAction action) noexcept;
bool takesPaths(InstanceAction action) noexcept;

struct InstanceRequest {
  InstanceAction action = InstanceAction::open;
  std::vector<std::filesystem::path> paths;
  std::vector<std::string> words = {};  ///< any bytes but NUL
  bool operator==(const InstanceRequest&) const = default;
};

struct InstanceAnswer {
  bool ok = false;
  std::string text;  ///< to print: what was done, or what is wrong and what to do; valid UTF-8
  bool operator==(const InstanceAnswer&) const = default;
};

/// Longest line of either side in bytes, its end included. A command line is at most an eighth of
/// it before it is encoded.
inline constexpr std::size_t kLongestInstanceLine = std::size_t{16} << 20;

/// The lines end with a newline. Pure; any thread.
std::string encode(const InstanceRequest& request);
std::string encode(const InstanceAnswer& answer);

/// From a line with or without its end: any bytes. The error says what is wrong, in one line.
struct InstanceMessageError {
  std::string text;
};
Result<InstanceRequest, InstanceMessageError> decodeRequest(std::string_view line);
Result<InstanceAnswer, InstanceMessageError> decodeAnswer(std::string_view line);

}  // namespace velorin
