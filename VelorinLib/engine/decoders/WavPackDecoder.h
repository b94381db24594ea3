// WavPack, decoded by libwavpack.
#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/decoders/WavPackStream.h"

namespace velorin {

/// Reads a WavPack file: integers of 1 to 32 bits or 32-bit floats, lossless, or hybrid with or
/// without its correction file; one-bit audio as the PCM of 24 bits that the library makes of it,
/// at an eighth of its rate.
///
/// Integers reach the target as FLACDecoder's do: at most 16 bits into 16-bit words, more into
/// 32-bit words, always at the top; in floats full scale is 1. A float source passes unchanged in
/// floats, beyond full scale too, unless the file says that its full scale is another, to which it
/// is then brought. Its integers are clipped and rounded; the engine does not ask for them.
///
/// What is lost to damage becomes silence of the same length. One thread at a time uses an object;
/// read() does not allocate.
class WavPackDecoder final : public FileDecoder {
 public:
  using Made = Result<std::unique_ptr<WavPackDecoder>, DecoderError>;

  /// A file on disk, with the correction file beside it, if any: the same name with a "c" behind.
  static Made create(const std::filesystem::path& path);

  /// From wherever the bytes are; `correction` is null for a file without one.
  static Made create(std::unique_ptr<ReadableFile> file,
                     std::unique_ptr<ReadableFile> correction = nullptr);

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
  bool isFloatSource() const noexcept override { return _format.isFloat; }

  /// Sample-exact. When it fails (past the end, say) the position has not moved and read() goes
  /// on from it.
  bool seek(std::int64_t frame) noexcept override;

  /// Lets go of the file. Final; the destructor does the same.
  void close() noexcept { _stream.reset(); }

 private:
  explicit WavPackDecoder(std::unique_ptr<WavPackStream> stream);
  void convert(const AudioBufferList& target, std::uint32_t at, std::uint32_t frames,
               bool asFloat) noexcept;
  void convertInteger(void* out, std::uint32_t frames, bool asFloat) noexcept;
  void convertFloat(void* out, std::uint32_t frames, bool asFloat) noexcept;
  std::size_t sampleSize(bool asFloat) const noexcept;

  std::unique_ptr<WavPackStream> _stream;
  const WavPackStream::Format _format;
  std::vector<std::int32_t> _scratchBuffer;  // interleaved, kChunk frames
  std::vector<std::int32_t> _plane;          // one channel of it
  std::vector<float> _floatPlane;            // the same of a float source
  std::int64_t _currentSample = 0;
};

}  // namespace velorin
