// Everything that has no decoder of its own: MP3, AAC, ALAC, WAV, AIFF, CAF, Vorbis and more.
#pragma once

#include <memory>
#include <string_view>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/decoders/ReadableFile.h"
#include "engine/decoders/media/MediaStream.h"
#include "foundation/Result.h"

namespace velorin {

/// Reads what the FFmpeg libraries read of music, from disk or RAM; see MediaStream.h for position,
/// seek, joins and damage. What a file is told by its content; the extension only helps.
///
/// Integer PCM and lossless codecs reach the target with every bit, at the top of its word. Floats
/// at the source keep what is beyond full scale. Lossy codecs, and telephone PCM (A-law, mu-law,
/// ADPCM) with them, state no depth; as integers they are rounded to 16 bits.
class ExtAudioFileDecoder final : public FileDecoder {
 public:
  using Made = Result<std::unique_ptr<ExtAudioFileDecoder>, DecoderError>;

  /// The extension is without its dot and may be empty.
  static Made create(std::unique_ptr<ReadableFile> file, std::string_view extension = {});

  /// Status is -1 after close().
  DecodeResult read(const AudioBufferList& target, std::uint32_t frames,
                    bool asFloat) noexcept override;
  std::int64_t currentPosition() const noexcept override;
  double sampleRate() const noexcept override { return _format.sampleRate; }
  std::uint32_t channels() const noexcept override { return _format.channels; }
  std::uint32_t bitsPerSample() const noexcept override { return _format.bitsPerSample; }
  /// Counted, or stated by the container; never a guess by the bit rate. Of Matroska and ASF to the
  /// millisecond.
  std::int64_t totalFrames() const noexcept override { return _format.totalFrames; }
  bool isFloatSource() const noexcept override { return _format.isFloat; }
  DecoderInfo info() const override;
  bool seek(std::int64_t frame) noexcept override;

  /// Lets go of the file. Final; the destructor does the same.
  void close() noexcept { _stream.reset(); }

 private:
  explicit ExtAudioFileDecoder(std::unique_ptr<MediaStream> stream) noexcept;

  std::unique_ptr<MediaStream> _stream;
  const MediaStream::Format _format;
};

}  // namespace velorin
