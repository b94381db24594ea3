// A file of one-bit audio as PCM, or packed for a PCM link.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "engine/dsd/DSDChannelReader.h"
#include "engine/dsd/DSDConverter.h"
#include "engine/dsd/DSDLayout.h"
#include "engine/dsd/DoPPacking.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

/// Reads DSF and DSDIFF, and gives the sound in one of two forms: converted to float PCM, or as
/// DSD over PCM. Both are cut at the end of the sound: neither what fills up the last block of a
/// DSF nor a chunk behind the sound is ever heard.
///
/// One thread at a time. A file that cannot be read on ends there.
class DoPEncoder {
 public:
  using Made = Result<std::unique_ptr<DoPEncoder>, DecoderError>;

  /// Parses the file's head; stands at the first byte of sound. Null is an error like any other.
  static Made create(std::unique_ptr<ReadableFile> file, DSDFormat format);

  const DSDLayout& layout() const noexcept { return _layout; }

  /// Bytes of sound that were consumed, all channels together.
  std::uint64_t currentPosition() const noexcept {
    return _reader.position() * _layout.channelCount;
  }

  /// Goes to the byte of a time, at most to the end. Filters and markers start anew.
  void seekDSD(double seconds) noexcept;

  /// The same to a byte of each channel.
  void seekToByte(std::uint64_t position) noexcept;

  // To PCM

  /// Makes a converter for each channel, in the place of those that were. The decimation is what
  /// follows the 8:1 filter, see DSDConverter. Throws std::bad_alloc.
  void prepareDSDtoPCM(int decimation);
  /// Frees them: readPCMFrames() has nothing more to give.
  void closeDSDtoPCM() noexcept;

  /// Half-band stages of each converter, and the bytes of each channel that a frame takes.
  int stages() const noexcept { return _stages; }
  std::uint64_t bytesPerFrame() const noexcept { return std::uint64_t{1} << _stages; }

  /// Converts up to `frames` frames into the planes, one for each channel; of a file of more
  /// channels the first ones are wanted. Fewer only at the end, 0 behind it. What remains of the
  /// file and makes no whole frame is not played. Does not allocate.
  std::size_t readPCMFrames(std::span<float* const> planes, std::size_t frames) noexcept;

  /// Goes on with the filters of the encoder whose file came before, see DSDConverter.
  void continueFrom(const DoPEncoder& before) noexcept;

  // Over PCM

  /// Up to so many DoP frames, interleaved; fewer only at the end, none behind it. A last odd byte
  /// is not packed. Until the next call. Throws std::bad_alloc.
  std::span<const std::int32_t> readDoPFrames(std::size_t frames);

 private:
  DoPEncoder(std::unique_ptr<ReadableFile> file, const DSDLayout& layout);
  void translate(std::size_t bytes, std::span<float* const> planes, std::size_t at) noexcept;

  const DSDLayout _layout;
  DSDChannelReader _reader;
  DoPPacking _packing;
  std::vector<DSDConverter> _pipelines;
  int _stages = 0;                               // of each of them
  std::vector<float> _unwanted;                  // what channels give that have no plane
  std::vector<std::uint8_t> _dsdChannelBuffers;  // of DoP, channel after channel
  std::vector<std::int32_t> _doPBuffer;
};

/// What a fill loop for DoP does with an encoder: up to `frames` frames into the planar list of
/// 32-bit words, as many as the buffers have room for; 0 at the end. Buffers beyond the file's
/// channels become 0, which no receiver takes for DoP. Throws std::bad_alloc.
std::uint32_t fillDoP(DoPEncoder& encoder, const AudioBufferList& target, std::uint32_t frames);

}  // namespace velorin
