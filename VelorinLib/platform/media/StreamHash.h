// Is the sound of two files the same, bit for bit, without decoding it.
#pragma once

#include <string>

#include "platform/media/MediaProbe.h"

namespace velorin {

/// A 128-bit hash (Murmur3, hex digits) of the whole audio stream: every packet as the demuxer
/// gives it, and the codec's set-up apart from Vorbis comments. Equal for two files whose tags and
/// container differ but whose coded sound does not. Reads the whole file, a regular one. Any
/// thread; takes about the time of reading.
Result<std::string, MediaError> hashStream(const std::string& path);

}  // namespace velorin
