// What a media file of any kind holds, told by the general demuxers.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "foundation/Result.h"

namespace velorin {

/// Why a file is no music, in one line without its path.
struct MediaError {
  std::string reason;
};

struct MediaProperties {
  double duration = 0;            ///< seconds, never below 0; 0 when it cannot be told
  std::optional<int> sampleRate;  ///< Hz; of DSD the rate of bytes, an eighth of the one-bit rate
  std::optional<int> channels;
  std::optional<int> bitDepth;  ///< of lossless codecs
  std::optional<int> bitRate;   ///< bits per second
  std::string codec;            ///< the library's name of it, e.g. "flac", "aac", "mp3"
  /// What the container says of the music, by the library's common names in lower case ("title",
  /// "artist", "album", "track", "disc", "date" …). Foreign bytes.
  std::map<std::string, std::string> tags;
};

/// Looks at the file's head, and where its format needs it at its end. Reads regular files only:
/// never a pipe or a device, nothing over the network, no other file that the file refers to. What
/// little but its name makes music must decode without a fault, in one rate and channel count. Any
/// thread; blocks for the disk.
Result<MediaProperties, MediaError> probeMedia(const std::string& path);

}  // namespace velorin
