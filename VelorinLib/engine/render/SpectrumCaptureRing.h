// A small lock-free ring of mono samples from the render thread to the live spectrum.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace velorin {

class SpectrumCaptureRing {
 public:
  /// Samples, rounded up to a power of two; 1 when below 1.
  explicit SpectrumCaptureRing(std::size_t wantedCapacity);

  std::size_t capacity() const noexcept { return _buffer.size(); }

  /// Render thread only. Stores (left + right) × 0.5; drops what does not fit.
  void write(const float* left, const float* right, std::size_t count) noexcept;

  /// Consumer only. Copies up to `maximum` samples, oldest first; returns how many.
  std::size_t read(float* into, std::size_t maximum) noexcept;

 private:
  std::vector<float> _buffer;
  std::size_t _mask;
  alignas(64) std::atomic<std::uint64_t> _writeHead{0};
  alignas(64) std::atomic<std::uint64_t> _readTail{0};
};

}  // namespace velorin
