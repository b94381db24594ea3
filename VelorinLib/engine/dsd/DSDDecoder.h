// One-bit audio as the engine plays it: a decoder like any other.
#pragma once

#include <memory>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/dsd/DSDSource.h"
#include "engine/dsd/DoPEncoder.h"

namespace velorin {

/// A DSF or DSDIFF file as PCM of the rate that was prepared.
///
/// Frame n of the output is made of the bytes up to and including those of frame n, so that the
/// sound comes later by the filters' delay (40.5 one-bit samples and 11 samples before each
/// half-band stage: 0.11 ms for DSD64 at 88.2 kHz), and what the filters still hold at the end of
/// the file is its last that long. The length is that of the file, rounded down to whole frames;
/// nothing is added. A file that goes on where another one ended takes over what the filters hold,
/// and the seam is not to be heard: see continueFrom().
///
/// One thread at a time uses an object. read() does not allocate.
class DSDDecoder final : public FileDecoder, public DSDSource {
 public:
  using Made = Result<std::unique_ptr<DSDDecoder>, DecoderError>;

  static Made create(std::unique_ptr<ReadableFile> file, DSDFormat format);

  /// Float only: one bit has no integer form, and status is -1 where one is asked for. Buffers of
  /// the list beyond the file's channels are filled with silence; a list of fewer takes the first
  /// channels. Never writes more than a buffer's byte size.
  DecodeResult read(const AudioBufferList& target, std::uint32_t frames,
                    bool asFloat) noexcept override;

  std::int64_t currentPosition() const noexcept override { return _currentFrame; }
  double sampleRate() const noexcept override;
  std::uint32_t channels() const noexcept override { return _encoder->layout().channelCount; }
  std::uint32_t bitsPerSample() const noexcept override { return 1; }
  std::int64_t totalFrames() const noexcept override;
  DecoderInfo info() const override;
  bool isFloatSource() const noexcept override { return true; }
  DSDSource* dsd() noexcept override { return this; }

  /// Sample-exact: what follows equals what reading from the start of the file gives there, bit for
  /// bit. A target past the last frame is refused, and the position does not move.
  bool seek(std::int64_t frame) noexcept override;

  DSDRate dsdRate() const noexcept override { return _encoder->layout().rate; }
  void prepareDSDtoPCM(int decimation) override;
  void continueFrom(const DSDSource& before) noexcept override;

 private:
  explicit DSDDecoder(std::unique_ptr<DoPEncoder> encoder);
  bool standAt(std::int64_t frame) noexcept;

  const std::unique_ptr<DoPEncoder> _encoder;
  std::int64_t _currentFrame = 0;
};

}  // namespace velorin
