// The fixed stage after the chain: does what leaves it exceed full scale?
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/audio/StreamFormat.h"

namespace velorin {

/// Latches for some blocks after a clip. Written by the render thread; the rest may be read, and
/// reset() called, on any thread.
class ClippingDetector {
 public:
  /// Blocks without a clip for which isClipping() stays.
  static constexpr std::int32_t kHoldBuffers = 50;

  /// Render thread. A magnitude of exactly 1.0 does not clip.
  void process(const AudioBufferList& buffers, std::int64_t frameCount) noexcept;

  bool isClipping() const noexcept { return _isClipping.load(std::memory_order_relaxed); }
  /// Largest magnitude of the last block, channels 0 and 1.
  float peakL() const noexcept { return _peakL.load(std::memory_order_relaxed); }
  float peakR() const noexcept { return _peakR.load(std::memory_order_relaxed); }
  /// Blocks that held a clip.
  std::uint64_t clipCount() const noexcept { return _clipCount.load(std::memory_order_relaxed); }

  void reset() noexcept;

 private:
  std::atomic<float> _peakL{0};
  std::atomic<float> _peakR{0};
  std::atomic<bool> _isClipping{false};
  std::atomic<std::uint64_t> _clipCount{0};
  std::atomic<std::int32_t> _holdCounter{0};
};

}  // namespace velorin
