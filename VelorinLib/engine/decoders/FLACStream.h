// libFLAC's push model, tamed: one block at a time, on demand.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/decoders/ReadableFile.h"
#include "foundation/Result.h"

namespace velorin {

/// A FLAC stream, native or in an Ogg container, and the block that libFLAC decoded last. Every
/// block has the shape that the stream's STREAMINFO states, whatever the frames say: a channel
/// that a frame lacks is silent, one too many is dropped, a frame of another depth is shifted to
/// the stated one, and a value beyond the stated depth is held at its end.
///
/// One thread at a time. Only open() and the first blocks allocate.
class FLACStream {
 public:
  /// What STREAMINFO states.
  struct Format {
    std::uint32_t sampleRate = 0;     ///< Hz, at least 1
    std::uint32_t channels = 0;       ///< 1 to 8
    std::uint32_t bitsPerSample = 0;  ///< 1 to 32
    std::int64_t totalFrames = 0;     ///< 0 when not stated
  };

  /// Reads up to the first frame. The error's text is one line: what is wrong and what to do.
  static Result<std::unique_ptr<FLACStream>, DecoderError> open(std::unique_ptr<ReadableFile> file);

  ~FLACStream();
  FLACStream(const FLACStream&) = delete;
  FLACStream& operator=(const FLACStream&) = delete;

  const Format& format() const noexcept { return _format; }

  /// Decodes the next block. False when the stream has nothing more, or cannot be read on.
  /// Damaged frames are passed over.
  bool decodeBlock() noexcept;

  /// Moves to a frame; the block then starts there. False when that frame cannot be reached: the
  /// block is then empty, and decoding goes on from some later frame.
  bool seek(std::uint64_t frame) noexcept;

  /// Frames in the block; 0 before the first.
  std::uint32_t blockFrames() const noexcept { return _blockFrames; }

  /// Where the block starts in the stream, as its frame's header says.
  std::int64_t blockStart() const noexcept { return _blockStart; }

  /// Frames that were lost to damage between the block before and this one, as their headers
  /// number them. 0 after a seek, and where the numbers make no sense.
  std::uint32_t lostBefore() const noexcept { return _lostBefore; }

  /// One channel of the block: integers of bitsPerSample bits, sign-extended.
  std::span<const std::int32_t> block(std::uint32_t channel) const noexcept {
    return {_planes[channel].data(), _blockFrames};
  }

 private:
  struct Library;

  FLACStream(std::unique_ptr<ReadableFile> file, std::uint64_t origin) noexcept;
  /// What a frame's header says of it.
  struct Header {
    std::int64_t start = 0;
    std::uint32_t frames = 0;
    std::uint32_t channels = 0;
    std::uint32_t bits = 0;
  };
  void takeBlock(const std::int32_t* const* samples, const Header& header);
  void place(const Header& header) noexcept;

  std::unique_ptr<ReadableFile> _file;
  const std::uint64_t _origin;  // where in the file the stream starts: behind foreign tags
  std::unique_ptr<Library> _library;
  Format _format;
  bool _hasFormat = false;
  std::vector<std::vector<std::int32_t>> _planes;  // only ever grow
  std::uint32_t _blockFrames = 0;
  std::int64_t _blockStart = 0;
  std::int64_t _expectedStart = -1;  // of the next block; -1 when nothing came before it
  std::uint32_t _lostBefore = 0;
};

}  // namespace velorin
