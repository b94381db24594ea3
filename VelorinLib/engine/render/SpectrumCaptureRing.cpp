#include "engine/render/SpectrumCaptureRing.h"

#include <algorithm>
#include <bit>

namespace velorin {

SpectrumCaptureRing::SpectrumCaptureRing(std::size_t wantedCapacity)
    : _buffer(std::bit_ceil(std::max<std::size_t>(wantedCapacity, 1))), _mask(_buffer.size() - 1) {}

void SpectrumCaptureRing::write(const float* left, const float* right, std::size_t count) noexcept {
  const std::uint64_t head = _writeHead.load(std::memory_order_relaxed);
  const std::uint64_t tail = _readTail.load(std::memory_order_acquire);
  const std::size_t n = std::min(count, _buffer.size() - static_cast<std::size_t>(head - tail));
  for (std::size_t i = 0; i < n; ++i) _buffer[(head + i) & _mask] = (left[i] + right[i]) * 0.5f;
  if (n > 0) _writeHead.store(head + n, std::memory_order_release);
}

std::size_t SpectrumCaptureRing::read(float* into, std::size_t maximum) noexcept {
  const std::uint64_t tail = _readTail.load(std::memory_order_relaxed);
  const std::uint64_t head = _writeHead.load(std::memory_order_acquire);
  const std::size_t n = std::min(maximum, static_cast<std::size_t>(head - tail));
  for (std::size_t i = 0; i < n; ++i) into[i] = _buffer[(tail + i) & _mask];
  if (n > 0) _readTail.store(tail + n, std::memory_order_release);
  return n;
}

}  // namespace velorin
