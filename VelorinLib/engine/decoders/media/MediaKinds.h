// What kinds of files the general decoder takes, and what they are called. Internal to this folder.
#pragma once

#include <cstdint>
#include <string>

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace velorin::media {

/// Demuxers and decoders of music, by the library's names, separated by commas. What is on neither
/// list is not opened whatever a file holds: no playlist, no video, no picture.
extern const char* const kMusicDemuxers;
extern const char* const kMusicDecoders;

inline constexpr const char* kApeDemuxers = "ape";
inline constexpr const char* kApeDecoders = "ape";

/// What the coded sound is called, given the container's name: "MP3", "AAC", "ALAC", "WAV", "AIFF".
std::string nameOfSound(AVCodecID codec, const std::string& container);

/// True for linear PCM in any form.
bool isPCM(AVCodecID codec) noexcept;

/// True where every bit of what was encoded comes back.
bool isLossless(AVCodecID codec) noexcept;

/// Frames to decode and throw away so that what follows is what decoding from the start gives:
/// overlapping windows, the bit reservoir of MP3 (511 bytes, nine of its smallest frames), and of
/// Opus far more than the 80 ms that RFC 7845 section 4.6 asks for, until no difference is left.
/// `frameSize` is that of the codec's own frames.
std::int64_t prerollOf(AVCodecID codec, std::int64_t frameSize, std::int64_t sampleRate) noexcept;

}  // namespace velorin::media
