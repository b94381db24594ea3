// Where the sound lies in a file of one-bit audio: DSF ("DSF File Format Specification" 1.01,
// Sony) and DSDIFF ("DSDIFF File Format Specification" 1.5, Philips).
#pragma once

#include <cstdint>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/decoders/ReadableFile.h"
#include "engine/dsd/DSDSource.h"
#include "foundation/Result.h"

namespace velorin {

enum class DSDFormat { dsf, dsdiff };

/// What the head of a file says, checked: every member can be relied on. The sound is a sequence of
/// block sets, each a block of channel 0, then one of channel 1, and so on; a byte holds eight
/// samples. DSDIFF, which interleaves byte by byte, is the same with blocks of one byte.
struct DSDLayout {
  DSDFormat format = DSDFormat::dsf;
  DSDRate rate = DSDRate::dsd64;
  std::uint32_t channelCount = 0;         ///< 1 to kMaxChannels
  std::uint64_t dataOffset = 0;           ///< of the first byte of sound in the file
  std::uint64_t totalDSDBytes = 0;        ///< sound data of all channels, no more than the file has
  std::uint32_t blockSizePerChannel = 0;  ///< bytes; a block set is at most kMaxBlockSetBytes
  /// Bytes of sound of each channel, 1 or more. Less than its share of totalDSDBytes where a DSF
  /// states its sample count: what fills up the last block is not to be heard. Of a last byte that
  /// is sound only in part nothing is played.
  std::uint64_t bytesPerChannel = 0;
  /// The oldest sample of a byte is in its lowest bit. So it is in a DSF, unless it states 8 bits
  /// per sample, which in that format means bytes with the oldest sample on top.
  bool isLeastSignificantFirst = false;

  static constexpr std::uint64_t kMaxBlockSetBytes = std::uint64_t{1} << 24;
};

/// Reads the head of a file, from its start. Reads a bounded number of bytes, whatever the file
/// claims. The error's text is one line: what is wrong and what to do. A DSF of an unknown rate is
/// logged as well. Does not throw but for std::bad_alloc.
Result<DSDLayout, DecoderError> parseDSDLayout(ReadableFile& file, DSDFormat format);

}  // namespace velorin
