// One step of the fill side: decode a block, resample it if the track needs that, write it to the
// ring. The fill loop and the prefill of a seek both turn on it.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/resampling/SoxrResampler.h"
#include "engine/ring/AudioRingBuffer.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

class DecodeStage {
 public:
  /// Frames of one decode.
  static constexpr std::uint32_t kBlockFrames = 4096;

  /// Allocates all buffers that step() will need. `resampler` may be null. All must outlive this
  /// object. Engine queue or fill thread; then one thread at a time.
  DecodeStage(FileDecoder& decoder, SoxrResampler* resampler, const StreamFormat& clientFormat,
              bool isIntegerOutput, AudioRingBuffer& ring);

  enum class Outcome { wrote, endOfStream, failed };

  /// Free frames the ring must have before a step: the most that a step can write.
  std::uint32_t chunk() const noexcept;

  /// Decodes up to `wanted` (at most kBlockFrames) frames and writes what comes of them. A
  /// resampler that is still filling its delay line writes nothing, which is not the end.
  Outcome step(std::uint32_t wanted) noexcept;

  /// Writes one more piece of the resampler's tail; call with chunk() frames free until it says
  /// false: the stream is then complete. Without a resampler at once false.
  bool drainStep() noexcept;

  /// Forgets what the resampler holds, for a jump in the stream.
  void reset() noexcept;

  /// Frames written to the ring since made.
  std::int64_t framesWritten() const noexcept { return _framesWritten; }

 private:
  void convertChannel(std::uint32_t channel, const double* samples, std::uint32_t count) noexcept;

  FileDecoder& _decoder;
  SoxrResampler* _resampler;
  AudioRingBuffer& _ring;
  const bool _isIntegerOutput;
  const std::uint32_t _channels;
  const std::uint32_t _clientSampleSize;
  PlanarBuffers _decoded;
  PlanarBuffers _output;         ///< the resampler's result at the client's sample type
  std::vector<double> _scratch;  ///< one channel's input to the resampler
  std::int64_t _framesWritten = 0;
};

}  // namespace velorin
