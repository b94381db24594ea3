#include "platform/vector/PCMPacking.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "platform/vector/VectorKernels.h"

namespace velorin::vector {
namespace {

// Frames worked on at a time: a tile of a channel stays in the first-level cache and on the stack.
constexpr std::size_t kTile = 256;

struct Tile {
  alignas(64) std::int32_t words[kTile];
};

unsigned integerBits(PCMWord word) noexcept {
  switch (word) {
    case PCMWord::int16:
      return 16;
    case PCMWord::int24Packed:
    case PCMWord::int24Low:
      return 24;
    case PCMWord::int32:
    case PCMWord::float32:
      return 32;
  }
  return 32;
}

// The three conversions of a plane's run to tile words: the device's value sign-extended, or the
// float's bits. Overloads, one per plane type.

void toTile(const Kernels& k, const float* in, std::size_t count, PCMWord word, Tile& tile) {
  if (word == PCMWord::float32) {
    std::memcpy(tile.words, in, count * sizeof *in);
  } else {
    k.floatToInt32(in, integerBits(word), tile.words, count);
  }
}

void toTile(const Kernels& k, const std::int16_t* in, std::size_t count, PCMWord word, Tile& tile) {
  if (word == PCMWord::float32) {
    alignas(64) float floats[kTile];
    k.int16ToFloat(in, 0x1p-15f, floats, count);
    std::memcpy(tile.words, floats, count * sizeof *floats);
  } else {
    k.int16ToInt32(in, integerBits(word) - 16, tile.words, count);
  }
}

void toTile(const Kernels& k, const std::int32_t* in, std::size_t count, PCMWord word, Tile& tile) {
  if (word == PCMWord::float32) {
    alignas(64) float floats[kTile];
    k.int32ToFloat(in, 0x1p-31f, floats, count);
    std::memcpy(tile.words, floats, count * sizeof *floats);
  } else {
    k.shiftRightInt32(in, 32 - integerBits(word), tile.words, count);
  }
}

// Low bytes of each word to every `stride` bytes.
template <std::size_t kBytes>
void scatter(const Tile& tile, std::size_t count, std::byte* out, std::size_t stride) {
  for (std::size_t i = 0; i < count; ++i) std::memcpy(out + i * stride, tile.words + i, kBytes);
}

void scatterWords(const Tile& tile, std::size_t count, std::size_t bytes, std::byte* out,
                  std::size_t stride) {
  switch (bytes) {
    case 2:
      return scatter<2>(tile, count, out, stride);
    case 3:
      return scatter<3>(tile, count, out, stride);
    default:
      return scatter<4>(tile, count, out, stride);
  }
}

void writeStereoTiles(const Kernels& k, const Tile& left, const Tile& right, std::size_t count,
                      PCMWord word, std::byte* out) {
  switch (word) {
    case PCMWord::int16: {
      alignas(64) std::int16_t narrow[2][kTile];
      k.shiftLeftToInt16(left.words, 0, narrow[0], count);
      k.shiftLeftToInt16(right.words, 0, narrow[1], count);
      return k.interleavePairs16(narrow[0], narrow[1], out, count);
    }
    case PCMWord::int24Packed: {
      alignas(64) std::int32_t pairs[2 * kTile];
      k.interleavePairs32(left.words, right.words, reinterpret_cast<std::byte*>(pairs), count);
      return k.packInt24(pairs, out, 2 * count);
    }
    default:
      return k.interleavePairs32(left.words, right.words, out, count);
  }
}

template <class Sample>
void interleavePlanes(const Sample* const* planes, std::size_t channels, std::size_t frames,
                      PCMWord word, std::byte* out) noexcept {
  const Kernels& k = activeKernels();
  const std::size_t bytes = bytesPerWord(word);
  const std::size_t stride = bytes * channels;
  for (std::size_t start = 0; start < frames; start += kTile) {
    const std::size_t count = std::min(kTile, frames - start);
    std::byte* const target = out + start * stride;
    if (channels == 2) {
      Tile left;
      Tile right;
      toTile(k, planes[0] + start, count, word, left);
      toTile(k, planes[1] + start, count, word, right);
      writeStereoTiles(k, left, right, count, word, target);
      continue;
    }
    for (std::size_t channel = 0; channel < channels; ++channel) {
      Tile tile;
      toTile(k, planes[channel] + start, count, word, tile);
      scatterWords(tile, count, bytes, target + channel * bytes, stride);
    }
  }
}

// Words of one channel to the top of 32-bit words (a float's bits stay as they are).
void gather(const std::byte* in, std::size_t stride, PCMWord word, std::size_t count,
            std::int32_t* out) {
  const std::size_t bytes = bytesPerWord(word);
  const unsigned shift = 32 - (word == PCMWord::int24Low ? 24 : static_cast<unsigned>(bytes) * 8);
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t value = 0;
    std::memcpy(&value, in + i * stride, bytes);
    out[i] = static_cast<std::int32_t>(value << shift);
  }
}

// Pairs of integers of full scale to float planes.
template <class Sample, class Part, class ToFloat>
void pairsToFloat(const std::byte* in, Part part, ToFloat toFloat, std::size_t frames,
                  float* const* planes) {
  constexpr float kScale = -1.0f / static_cast<float>(std::numeric_limits<Sample>::min());
  for (std::size_t start = 0; start < frames; start += kTile) {
    const std::size_t count = std::min(kTile, frames - start);
    alignas(64) Sample left[kTile];
    alignas(64) Sample right[kTile];
    part(in + start * 2 * sizeof(Sample), left, right, count);
    toFloat(left, kScale, planes[0] + start, count);
    toFloat(right, kScale, planes[1] + start, count);
  }
}

}  // namespace

std::size_t bytesPerWord(PCMWord word) noexcept {
  switch (word) {
    case PCMWord::int16:
      return 2;
    case PCMWord::int24Packed:
      return 3;
    default:
      return 4;
  }
}

void interleave(const float* const* planes, std::size_t channels, std::size_t frames, PCMWord word,
                std::byte* out) noexcept {
  if (channels == 2 && word == PCMWord::float32) {
    return activeKernels().interleavePairs32(planes[0], planes[1], out, frames);
  }
  interleavePlanes(planes, channels, frames, word, out);
}

void interleave(const std::int16_t* const* planes, std::size_t channels, std::size_t frames,
                PCMWord word, std::byte* out) noexcept {
  if (channels == 2 && word == PCMWord::int16) {
    return activeKernels().interleavePairs16(planes[0], planes[1], out, frames);
  }
  interleavePlanes(planes, channels, frames, word, out);
}

void interleave(const std::int32_t* const* planes, std::size_t channels, std::size_t frames,
                PCMWord word, std::byte* out) noexcept {
  if (channels == 2 && word == PCMWord::int32) {
    return activeKernels().interleavePairs32(planes[0], planes[1], out, frames);
  }
  interleavePlanes(planes, channels, frames, word, out);
}

void deinterleave(const std::byte* in, PCMWord word, std::size_t channels, std::size_t frames,
                  float* const* planes) noexcept {
  const Kernels& k = activeKernels();
  if (channels == 2 && word == PCMWord::float32) {
    return k.deinterleavePairs32(in, planes[0], planes[1], frames);
  }
  if (channels == 2 && word == PCMWord::int16) {
    return pairsToFloat<std::int16_t>(in, k.deinterleavePairs16, k.int16ToFloat, frames, planes);
  }
  if (channels == 2 && word == PCMWord::int32) {
    return pairsToFloat<std::int32_t>(in, k.deinterleavePairs32, k.int32ToFloat, frames, planes);
  }
  const std::size_t bytes = bytesPerWord(word);
  const std::size_t stride = bytes * channels;
  for (std::size_t channel = 0; channel < channels; ++channel) {
    for (std::size_t start = 0; start < frames; start += kTile) {
      const std::size_t count = std::min(kTile, frames - start);
      Tile tile;
      gather(in + start * stride + channel * bytes, stride, word, count, tile.words);
      if (word == PCMWord::float32) {
        std::memcpy(planes[channel] + start, tile.words, count * sizeof(float));
      } else {
        k.int32ToFloat(tile.words, 0x1p-31f, planes[channel] + start, count);
      }
    }
  }
}

void deinterleave(const std::byte* in, std::size_t channels, std::size_t frames,
                  std::int16_t* const* planes) noexcept {
  if (channels == 2) {
    return activeKernels().deinterleavePairs16(in, planes[0], planes[1], frames);
  }
  for (std::size_t channel = 0; channel < channels; ++channel) {
    for (std::size_t i = 0; i < frames; ++i) {
      std::memcpy(planes[channel] + i, in + (i * channels + channel) * 2, 2);
    }
  }
}

void deinterleave(const std::byte* in, PCMWord word, std::size_t channels, std::size_t frames,
                  std::int32_t* const* planes) noexcept {
  const Kernels& k = activeKernels();
  if (channels == 2 && word == PCMWord::int32) {
    return k.deinterleavePairs32(in, planes[0], planes[1], frames);
  }
  const std::size_t bytes = bytesPerWord(word);
  for (std::size_t channel = 0; channel < channels; ++channel) {
    gather(in + channel * bytes, bytes * channels, word, frames, planes[channel]);
    if (word == PCMWord::float32) {
      for (std::size_t start = 0; start < frames; start += kTile) {
        const std::size_t count = std::min(kTile, frames - start);
        alignas(64) float floats[kTile];
        std::memcpy(floats, planes[channel] + start, count * sizeof *floats);
        k.floatToInt32(floats, 32, planes[channel] + start, count);
      }
    }
  }
}

}  // namespace velorin::vector
