// One channel of one-bit sound to PCM.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "engine/dsd/DSDTables.h"
#include "engine/dsd/HalfBandStage.h"

namespace velorin {

/// dsd2pcm, a 96-tap low-pass that gives one float for every eight samples, and behind it half-band
/// stages down to the rate wanted. The gain is 1: bits that are all set give 1.0, so that the
/// reference level of SACD, a sine of half the modulation, comes out at -6.02 dBFS.
///
/// The output depends on the bytes alone, not on how they are cut into calls. Everything in it is a
/// finite filter: a sample is made of the bytes of memoryBytes() before it, and of the one at it.
/// One thread at a time; only the constructor allocates.
class DSDConverter {
 public:
  static constexpr int kMaxStages = 8;

  /// Half-band stages for a decimation behind the 8:1 filter: none below 2, else its base-2
  /// logarithm, at most kMaxStages.
  static int stagesFor(int decimation) noexcept;

  /// Bytes before a sample's own that have a share in it.
  static std::size_t memoryBytes(int stages) noexcept;

  /// The flag says that the oldest sample of a byte is in its lowest bit. Throws std::bad_alloc.
  DSDConverter(int decimation, bool isLeastSignificantFirst);

  /// Takes bytes and returns how many samples it wrote: one for every 2^stages bytes, those left of
  /// calls before included.
  std::size_t translate(const std::uint8_t* bytes, std::size_t count, float* out) noexcept;

  /// As new: before the first byte there was silence.
  void reset() noexcept;

  /// Goes on where another converter of the same number of stages stands, as if its bytes had come
  /// before: what joins two files that were cut from one recording without a seam. One of another
  /// number of stages is as good as silence.
  void continueFrom(const DSDConverter& before) noexcept;

 private:
  static constexpr std::size_t kHistory = vector::kOneBitSpan - 1;
  static constexpr std::size_t kPiece = 2048;  // bytes at a time: what stays in the nearest cache

  std::size_t translatePiece(std::size_t count, float* out) noexcept;

  const bool _isLeastSignificantFirst;
  const DSDTables& _tables;
  std::array<std::uint8_t, kHistory + kPiece> _bytes;  // those of before, then the piece
  std::vector<HalfBandStage> _stages;
  std::vector<float> _between[2];  // from stage to stage, in turns
};

}  // namespace velorin
