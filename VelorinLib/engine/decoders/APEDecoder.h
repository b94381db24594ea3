// Monkey's Audio, decoded by the FFmpeg libraries.
#pragma once

#include <cstdint>
#include <memory>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/decoders/ReadableFile.h"
#include "engine/decoders/media/MediaStream.h"
#include "foundation/Result.h"

namespace velorin {

/// Reads an APE file of 8, 16 or 24 bits, mono or stereo, of version 3.80 or later. Every bit of
/// the source reaches the target, at the top of its word; the unsigned samples of 8-bit files are
/// centred on zero.
///
/// A frame of the file that is damaged becomes silence of its length; a file that ends early ends
/// the stream there. See MediaStream.h for the rest.
class APEDecoder final : public FileDecoder {
 public:
  using Made = Result<std::unique_ptr<APEDecoder>, DecoderError>;

  /// Bytes that are not on disk must be fewer than this.
  static constexpr std::uint64_t kMemoryLimit = std::uint64_t{1} << 31;

  static Made create(std::unique_ptr<ReadableFile> file);

  /// Status is -1 after close().
  DecodeResult read(const AudioBufferList& target, std::uint32_t frames,
                    bool asFloat) noexcept override;
  std::int64_t currentPosition() const noexcept override;
  double sampleRate() const noexcept override { return _format.sampleRate; }
  std::uint32_t channels() const noexcept override { return _format.channels; }
  std::uint32_t bitsPerSample() const noexcept override { return _format.bitsPerSample; }
  std::int64_t totalFrames() const noexcept override { return _format.totalFrames; }
  DecoderInfo info() const override;
  bool seek(std::int64_t frame) noexcept override;

  /// True once a read has met the end; a successful seek clears it.
  bool isEOF() const noexcept { return _stream && _stream->isEOF(); }

  /// Lets go of the file. Final; the destructor does the same.
  void close() noexcept { _stream.reset(); }

 private:
  explicit APEDecoder(std::unique_ptr<MediaStream> stream) noexcept;

  std::unique_ptr<MediaStream> _stream;
  const MediaStream::Format _format;
};

}  // namespace velorin
