// What runs on the render thread: ring → effects → volume → device.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "dsp/DSPEffects.h"
#include "engine/render/RenderGate.h"
#include "engine/render/SpectrumCaptureRing.h"
#include "engine/render/TransportCells.h"
#include "engine/ring/AudioRingBuffer.h"
#include "platform/audio/StreamFormat.h"
#include "records/PlaybackTypes.h"

namespace velorin {

/// What outlives a track and may change while rendering: plain words, read once per call.
struct RenderControls {
  std::atomic<float> volume{1.0f};
  std::atomic<VolumeMode> volumeMode{VolumeMode::software};
  std::atomic<bool> spectrumCaptureEnabled{false};
  /// 0, or the channel count (3 or more) of an aggregate whose pairs all get the same stereo.
  std::atomic<int> multiOutputChannelCount{0};
  /// Calls that took too long; whoever reports them takes the count.
  std::atomic<std::int64_t> renderOverloadCount{0};
};

/// The render side of one started output. Everything in it is final before the unit starts; the
/// unit is stopped before any of it goes away.
class RenderPath {
 public:
  struct Stream {
    AudioRingBuffer& ring;
    TransportCells& cells;
    RenderGate& gate;
    double sampleRate;            ///< `rtSampleRate`: the client rate, Hz
    std::uint32_t bytesPerFrame;  ///< `rtBytesPerFrame`: of one channel
    bool isIntegerOutput;
    double bufferDeadlineUs;  ///< one device buffer, microseconds
  };

  RenderPath(const Stream& stream, RenderControls& controls, const DSPStages& stages,
             SpectrumCaptureRing& spectrum);

  /// The unit's render callback; `context` is a RenderPath. Bound by foundation/Realtime.h.
  static std::uint32_t render(void* context, AudioBufferList& list, std::uint32_t frames) noexcept;

 private:
  std::uint32_t renderFrames(AudioBufferList& list, std::uint32_t frames) noexcept;
  std::uint32_t takeFromRing(AudioBufferList& list, std::uint32_t frames) noexcept;
  void captureSpectrum(const AudioBufferList& list, std::uint32_t frames) noexcept;
  void noteEndOfStream(std::uint32_t taken, std::uint32_t frames) noexcept;

  static constexpr std::uint32_t kSpectrumScratchFrames = 4096;

  const Stream _stream;
  RenderControls& _controls;
  const DSPStages _stages;
  SpectrumCaptureRing& _spectrum;
  const std::int64_t _overloadLimitUs;
  std::array<float, kSpectrumScratchFrames> _spectrumScratchL{};
  std::array<float, kSpectrumScratchFrames> _spectrumScratchR{};
};

/// The longest a render call may take before it counts as an overload, in microseconds: half of
/// the deadline, but no less than 5 ms or a tenth of the deadline where that is smaller.
std::int64_t renderOverloadLimitUs(double bufferDeadlineUs) noexcept;

}  // namespace velorin
