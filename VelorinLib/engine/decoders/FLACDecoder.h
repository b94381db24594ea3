// FLAC, decoded by libFLAC.
#pragma once

#include <filesystem>
#include <memory>

#include "engine/decoders/FLACStream.h"
#include "engine/decoders/FillThreadDecoder.h"

namespace velorin {

/// Reads a FLAC file of 1 to 32 bits and 1 to 8 channels, native or in an Ogg container.
///
/// Every bit of the source reaches the target. Float: sample / 2^(bits-1), exact up to 24 bits,
/// rounded once above. Integer: at most 16 bits into 16-bit words, more into 32-bit words, the
/// sample always at the top of its word, so full scale is full scale at every depth.
///
/// Damaged frames become silence of the same length, so that what follows keeps its time. A file
/// that ends early ends the stream there. One thread at a
/// time uses an object; read() does not allocate once the first few blocks are through.
class FLACDecoder final : public FileDecoder {
 public:
  using Made = Result<std::unique_ptr<FLACDecoder>, DecoderError>;

  /// Opens a file on disk. Blocks for no longer than reading the file's headers takes; anything
  /// but a regular file is refused.
  static Made create(const std::filesystem::path& path);

  /// Reads from wherever the bytes are.
  static Made create(std::unique_ptr<ReadableFile> file);

  /// Buffers of the list beyond the file's channels are filled with silence; a list of fewer
  /// takes the first channels. Never writes more than a buffer's byte size. Status is -1 after
  /// close().
  DecodeResult read(const AudioBufferList& target, std::uint32_t frames,
                    bool asFloat) noexcept override;

  std::int64_t currentPosition() const noexcept override { return _currentSample; }
  double sampleRate() const noexcept override { return _format.sampleRate; }
  std::uint32_t channels() const noexcept override { return _format.channels; }
  std::uint32_t bitsPerSample() const noexcept override { return _format.bitsPerSample; }
  std::int64_t totalFrames() const noexcept override { return _format.totalFrames; }
  DecoderInfo info() const override;

  /// Sample-exact. When it fails (past the end, say) the position has not moved and read() goes
  /// on from it.
  bool seek(std::int64_t frame) noexcept override;

  /// True once a read has met the end; a successful seek clears it.
  bool isEOF() const noexcept { return _isEOF; }

  /// Lets go of the file. Final; the destructor does the same.
  void close() noexcept { _stream.reset(); }

 private:
  explicit FLACDecoder(std::unique_ptr<FLACStream> stream) noexcept;
  void convert(const AudioBufferList& target, std::uint32_t at, std::uint32_t frames,
               bool asFloat) const noexcept;
  void silence(const AudioBufferList& target, std::uint32_t firstChannel, std::uint32_t at,
               std::uint32_t frames, bool asFloat) const noexcept;
  std::uint32_t sampleSize(bool asFloat) const noexcept;
  void nextBlock() noexcept;
  void findPosition() noexcept;

  std::unique_ptr<FLACStream> _stream;
  const FLACStream::Format _format;
  std::uint32_t _readOffset = 0;   // frames of the stream's block that were delivered
  std::uint32_t _silenceLeft = 0;  // frames to deliver before the block, in place of lost ones
  std::int64_t _currentSample = 0;
  bool _isEOF = false;
  bool _isLost = false;  // a seek failed and so did the way back
};

}  // namespace velorin
