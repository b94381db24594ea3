// Opus in Ogg, decoded by opusfile.
#pragma once

#include <filesystem>
#include <memory>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/decoders/OpusStream.h"

namespace velorin {

/// Reads an Ogg Opus file of 1 to 8 speakers, or of up to kMaxChannels channels that are none, also
/// one of several links (see OpusStream). Always 48 kHz: at 16 bits, dithered, on the integer
/// route, and on the float route as decoded, where peaks beyond full scale stay what they are.
///
/// What is lost to damage becomes silence of the same length. One thread at a time uses an object;
/// read() does not allocate but where a link begins.
class OpusDecoder final : public FileDecoder {
 public:
  using Made = Result<std::unique_ptr<OpusDecoder>, DecoderError>;

  static Made create(const std::filesystem::path& path);
  static Made create(std::unique_ptr<ReadableFile> file);

  /// Buffers of the list beyond the file's channels are filled with silence; a list of fewer
  /// takes the first channels. Never writes more than a buffer's byte size. Status is -1 after
  /// close().
  DecodeResult read(const AudioBufferList& target, std::uint32_t frames,
                    bool asFloat) noexcept override;

  std::int64_t currentPosition() const noexcept override { return _currentSample; }
  double sampleRate() const noexcept override { return OpusStream::kSampleRate; }
  std::uint32_t channels() const noexcept override { return _channels; }
  std::uint32_t bitsPerSample() const noexcept override { return 16; }
  std::int64_t totalFrames() const noexcept override { return _totalFrames; }
  DecoderInfo info() const override;

  /// Sample-exact, and what follows is what decoding from the start gives. When it fails (past the
  /// end, say) the position has not moved and read() goes on from it.
  bool seek(std::int64_t frame) noexcept override;

  /// Lets go of the file. Final; the destructor does the same.
  void close() noexcept { _stream.reset(); }

 private:
  explicit OpusDecoder(std::unique_ptr<OpusStream> stream) noexcept;
  bool moveTo(std::int64_t frame) noexcept;
  void convert(const AudioBufferList& target, std::uint32_t at,
               std::uint32_t frames) const noexcept;

  std::unique_ptr<OpusStream> _stream;
  const std::uint32_t _channels;
  const std::int64_t _totalFrames;
  std::uint32_t _readOffset = 0;   // frames of the stream's block that were delivered
  std::uint32_t _silenceLeft = 0;  // frames to deliver before the block, in place of lost ones
  std::int64_t _currentSample = 0;
};

}  // namespace velorin
