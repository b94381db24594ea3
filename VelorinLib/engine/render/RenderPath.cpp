#include "engine/render/RenderPath.h"

#include <chrono>

#include "platform/vector/Vector.h"

namespace velorin {
namespace {

constexpr float kUnityTolerance = 0.0001f;

void zero(const AudioBufferList& list, std::uint32_t from, std::uint32_t to,
          std::uint32_t bytesPerFrame) noexcept {
  const std::size_t offset = std::size_t{from} * bytesPerFrame;
  const std::size_t bytes = std::size_t{to - from} * bytesPerFrame;
  for (std::uint32_t i = 0; i < list.bufferCount; ++i) {
    if (list.buffers[i].data != nullptr) std::memset(list.channel<std::byte>(i) + offset, 0, bytes);
  }
}

/// Repeats the stereo pair in buffers 0 and 1 on every further pair of an aggregate.
void copyToFurtherPairs(const AudioBufferList& list, std::uint32_t frames,
                        std::uint32_t bytesPerFrame) noexcept {
  const std::size_t bytes = std::size_t{frames} * bytesPerFrame;
  for (std::uint32_t i = 2; i < list.bufferCount; ++i) {
    const AudioBuffer& source = list.buffers[i % 2];
    const AudioBuffer& target = list.buffers[i];
    if (source.data == nullptr || target.data == nullptr || target.byteSize < bytes) continue;
    std::memcpy(target.data, source.data, bytes);
  }
}

void integersToFloat(const void* samples, std::uint32_t bytesPerFrame, float* out,
                     std::size_t count) noexcept {
  switch (bytesPerFrame) {
    case 4:
      vector::int32ToFloat(static_cast<const std::int32_t*>(samples), 0x1p-31f, out, count);
      break;
    case 3:
      vector::int24ToFloat(static_cast<const std::byte*>(samples), 0x1p-23f, out, count);
      break;
    case 2:
      vector::int16ToFloat(static_cast<const std::int16_t*>(samples), 0x1p-15f, out, count);
      break;
    default:
      vector::fill(0.0f, out, count);
      break;
  }
}

}  // namespace

std::int64_t renderOverloadLimitUs(double bufferDeadlineUs) noexcept {
  const auto deadline = static_cast<std::int64_t>(bufferDeadlineUs);
  return std::min<std::int64_t>(deadline / 2, std::max<std::int64_t>(5000, deadline / 10));
}

RenderPath::RenderPath(const Stream& stream, RenderControls& controls, const DSPStages& stages,
                       SpectrumCaptureRing& spectrum)
    : _stream(stream),
      _controls(controls),
      _stages(stages),
      _spectrum(spectrum),
      _overloadLimitUs(renderOverloadLimitUs(stream.bufferDeadlineUs)) {}

std::uint32_t RenderPath::render(void* context, AudioBufferList& list,
                                 std::uint32_t frames) noexcept {
  auto* self = static_cast<RenderPath*>(context);
  const auto began = std::chrono::steady_clock::now();
  const std::uint32_t taken = self->renderFrames(list, frames);
  const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - began);
  if (elapsed.count() > self->_overloadLimitUs) {
    self->_controls.renderOverloadCount.fetch_add(1, std::memory_order_relaxed);
  }
  return taken;
}

std::uint32_t RenderPath::renderFrames(AudioBufferList& list, std::uint32_t frames) noexcept {
  const std::uint32_t allBuffers = list.bufferCount;
  const bool isMultiOutput = _controls.multiOutputChannelCount.load(std::memory_order_relaxed) > 2;
  if (isMultiOutput) list.bufferCount = std::min(list.bufferCount, 2u);

  const std::uint32_t taken = takeFromRing(list, frames);
  if (taken < frames) zero(list, taken, frames, _stream.bytesPerFrame);

  if (!_stream.isIntegerOutput) {
    _stages.headroom.process(list, frames);
    _stages.chain.process(list, frames, _stream.sampleRate);
    _stages.clipping.process(list, frames);
    const float volume = _controls.volume.load(std::memory_order_relaxed);
    if (_controls.volumeMode.load(std::memory_order_relaxed) == VolumeMode::software &&
        std::abs(volume - 1.0f) > kUnityTolerance) {
      for (std::uint32_t i = 0; i < list.bufferCount; ++i) {
        auto* samples = list.channel<float>(i);
        if (samples != nullptr) vector::multiplyByScalar(samples, volume, samples, frames);
      }
    }
  }
  if (_controls.spectrumCaptureEnabled.load(std::memory_order_relaxed)) {
    captureSpectrum(list, frames);
  }
  if (isMultiOutput) {
    list.bufferCount = allBuffers;
    copyToFurtherPairs(list, frames, _stream.bytesPerFrame);
  }
  return taken;
}

std::uint32_t RenderPath::takeFromRing(AudioBufferList& list, std::uint32_t frames) noexcept {
  std::uint32_t taken = 0;
  if (_stream.gate.enter()) {
    // The ring's counter is the position: see PositionClock.
    taken = _stream.ring.read(list, frames);
    noteEndOfStream(taken, frames);
  }
  _stream.gate.leave();
  return taken;
}

void RenderPath::noteEndOfStream(std::uint32_t taken, std::uint32_t frames) noexcept {
  TransportCells& cells = _stream.cells;
  if (taken == frames || !cells.eofReached.load(std::memory_order_acquire)) return;
  cells.framesAfterEnd.fetch_add(frames - taken, std::memory_order_release);
}

void RenderPath::captureSpectrum(const AudioBufferList& list, std::uint32_t frames) noexcept {
  if (list.bufferCount == 0 || list.buffers[0].data == nullptr) return;
  const std::uint32_t second = list.bufferCount > 1 && list.buffers[1].data != nullptr ? 1 : 0;
  if (!_stream.isIntegerOutput) {
    _spectrum.write(list.channel<float>(0), list.channel<float>(second), frames);
    return;
  }
  const std::uint32_t count = std::min(frames, kSpectrumScratchFrames);
  integersToFloat(list.buffers[0].data, _stream.bytesPerFrame, _spectrumScratchL.data(), count);
  integersToFloat(list.buffers[second].data, _stream.bytesPerFrame, _spectrumScratchR.data(),
                  count);
  _spectrum.write(_spectrumScratchL.data(), _spectrumScratchR.data(), count);
}

}  // namespace velorin
