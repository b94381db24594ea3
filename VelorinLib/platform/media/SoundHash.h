// By which a recording is known again, whatever is written beside it.
//
// The hash is over decoded sound: what tags say, how long they are, in which order a container
// holds its parts and which lossless codec packed the samples makes no difference to it. Another
// encoding by a lossy codec, another rate or number of channels does.
#pragma once

#include <string>

#include "platform/media/MediaProbe.h"

namespace velorin {

struct SoundHash {
  std::string hex;  ///< 128 bits, 32 lower-case digits

  bool operator==(const SoundHash&) const = default;
};

/// How much sound is hashed, and how much silence before it is passed over. Seconds.
inline constexpr int kHashedSeconds = 10;
inline constexpr int kSkippedSilence = 60;

/// Decodes the first seconds of sound that follow leading digital silence, or what there is of
/// them, and hashes rate, channels and samples: integers of the full 32-bit scale, of codecs that
/// compute in floating point rounded to 16 bits. Murmur3, 128 bits.
///
/// A file whose first minute is digital silence has no hash: all of them would have the same.
/// Reads regular files only. Any thread; takes the time of decoding.
Result<SoundHash, MediaError> hashSound(const std::string& path);

}  // namespace velorin
