// An Ogg Opus file as opusfile decodes it: one block of interleaved samples at a time, at 48 kHz.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/decoders/ReadableFile.h"
#include "foundation/Result.h"

namespace velorin {

/// One or more links (streams end to end in a file, as a recorded broadcast has them). Every frame
/// has the channels of the first link, whatever the link it comes from has: stereo is mixed from
/// any layout, mono is the mean of the channels, and in other layouts a channel that a link lacks
/// is silent.
///
/// Pre-skip and end trimming are opusfile's, as is the gain that the header asks for; the gains of
/// the R128 tags are left to those who level loudness. One thread at a time; only open(), seek()
/// and the begin of a link allocate.
class OpusStream {
 public:
  static constexpr double kSampleRate = 48000;  ///< Hz

  /// The error's text is one line: what is wrong and what to do.
  static Result<std::unique_ptr<OpusStream>, DecoderError> open(std::unique_ptr<ReadableFile> file);

  ~OpusStream();
  OpusStream(const OpusStream&) = delete;
  OpusStream& operator=(const OpusStream&) = delete;

  std::uint32_t channels() const noexcept { return _channels; }       ///< 1 to kMaxChannels
  std::int64_t totalFrames() const noexcept { return _totalFrames; }  ///< of all links

  /// Decodes the next block, to floats or, dithered, to 16 bits. False when the stream has nothing
  /// more, or cannot be read on. Damaged packets are passed over.
  bool decodeBlock(bool asFloat) noexcept;

  /// Brings the block to the other kind of sample.
  void convertBlock(bool asFloat) noexcept;

  /// To the frame, which the block then holds, or which was lost just ahead of the block. False
  /// when the frame cannot be reached: where the stream then stands is not known, but another seek
  /// may succeed.
  bool seek(std::int64_t frame) noexcept;

  /// Frames in the block; 0 before the first.
  std::uint32_t blockFrames() const noexcept { return _blockFrames; }
  std::int64_t blockStart() const noexcept { return _next - _blockFrames; }
  bool blockIsFloat() const noexcept { return _blockIsFloat; }
  /// Frames that were lost to damage ahead of the block. 0 where the file's numbers make no sense.
  std::uint32_t lostBefore() const noexcept { return _lostBefore; }

  /// The block, of which the one kind is valid. Channel c, in the order of WAVE files (front left,
  /// front right, centre, LFE, back, side), is sample blockChannel(c) of each frame.
  const float* floats() const noexcept { return _scratchFloat.data(); }
  const std::int16_t* int16s() const noexcept { return _scratchInt16.data(); }
  std::uint32_t blockChannel(std::uint32_t channel) const noexcept;

 private:
  struct Library;

  OpusStream() = default;
  int decode(bool asFloat, int& linkChannels) noexcept;
  void noteHole() noexcept;

  std::unique_ptr<ReadableFile> _file;
  std::unique_ptr<Library> _library;
  std::uint32_t _channels = 0;
  bool _hasSpeakers = false;  // the channels are those of speakers, in Vorbis order
  std::int64_t _totalFrames = 0;
  std::vector<float> _scratchFloat;
  std::vector<std::int16_t> _scratchInt16;
  std::uint32_t _blockFrames = 0;
  bool _blockIsFloat = true;
  std::uint32_t _lostBefore = 0;
  std::int64_t _next = 0;  // the frame behind the block
};

}  // namespace velorin
