// Planar samples to and from the interleaved words that a device takes.
//
// Planes hold one channel each: float in -1 to 1, or integers whose bits sit at the top of a 16-bit
// or 32-bit word. Everything here may be called on the render thread: nothing allocates, waits or
// throws. The interleaved side is plain bytes of any alignment, little-endian words, and must not
// overlap the planes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velorin::vector {

/// A word of an interleaved stream.
enum class PCMWord {
  int16,        ///< 2 bytes
  int24Packed,  ///< 3 bytes
  int24Low,     ///< 4 bytes, the value in the low 24 bits, sign-extended
  int32,        ///< 4 bytes
  float32,      ///< 4 bytes
};

/// Bytes of one word.
std::size_t bytesPerWord(PCMWord word) noexcept;

/// `frames` frames of `channels` planes to interleaved words.
///
/// Float planes become integers by rounding to nearest (ties to even) at full scale 2^(bits-1),
/// saturating: 1.0 gives the largest integer, NaN gives 0. Nothing is dithered.
void interleave(const float* const* planes, std::size_t channels, std::size_t frames, PCMWord word,
                std::byte* out) noexcept;

/// Bit for bit into every word of at least 16 bits; times 2^-15 into float32.
void interleave(const std::int16_t* const* planes, std::size_t channels, std::size_t frames,
                PCMWord word, std::byte* out) noexcept;

/// Into narrower words the low bits are cut off, so only a source of at most that many bits passes
/// unchanged; into float32 times 2^-31, rounded to nearest.
void interleave(const std::int32_t* const* planes, std::size_t channels, std::size_t frames,
                PCMWord word, std::byte* out) noexcept;

/// Interleaved words to float planes: integers times 2^-(bits-1), float32 as it is.
void deinterleave(const std::byte* in, PCMWord word, std::size_t channels, std::size_t frames,
                  float* const* planes) noexcept;

/// Interleaved int16 words to 16-bit planes.
void deinterleave(const std::byte* in, std::size_t channels, std::size_t frames,
                  std::int16_t* const* planes) noexcept;

/// Interleaved integer words to 32-bit planes, bits at the top. From float32 as floatToInt32 with
/// 32 bits does.
void deinterleave(const std::byte* in, PCMWord word, std::size_t channels, std::size_t frames,
                  std::int32_t* const* planes) noexcept;

}  // namespace velorin::vector
