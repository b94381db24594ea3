#include "platform/audio/StreamFormat.h"

#include <fmt/format.h>

#include <cstdlib>
#include <new>
#include <stdexcept>

namespace velorin {
namespace {

constexpr std::size_t kAlignment = 64;

std::size_t strideFor(std::uint32_t frames, std::uint32_t sampleSize) {
  const std::size_t bytes = std::size_t{frames} * sampleSize;
  return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

}  // namespace

StreamFormat StreamFormat::planarFloat(double sampleRate, std::uint32_t channels) {
  return {.sampleRate = sampleRate,
          .formatFlags = kPCMFloat | kPCMPacked | kPCMNonInterleaved,
          .bytesPerPacket = 4,
          .framesPerPacket = 1,
          .bytesPerFrame = 4,
          .channelsPerFrame = channels,
          .bitsPerChannel = 32};
}

std::string StreamFormat::description() const {
  return fmt::format("{:.0f} Hz, {}-bit {}, {} ch", sampleRate, bitsPerChannel,
                     isFloat() ? "float" : "integer", channelsPerFrame);
}

void PlanarBuffers::Free::operator()(void* block) const noexcept {
  std::free(block);
}

PlanarBuffers::PlanarBuffers(std::uint32_t channels, std::uint32_t frames, std::uint32_t sampleSize)
    : _frames(frames), _sampleSize(sampleSize) {
  if (channels == 0 || channels > kMaxChannels || frames == 0 || sampleSize == 0) {
    throw std::invalid_argument("PlanarBuffers: channels, frames or sample size out of range");
  }
  const std::size_t stride = strideFor(frames, sampleSize);
  _block.reset(static_cast<std::byte*>(std::aligned_alloc(kAlignment, stride * channels)));
  if (!_block) throw std::bad_alloc();
  std::memset(_block.get(), 0, stride * channels);
  _list.bufferCount = channels;
  for (std::uint32_t i = 0; i < channels; ++i) _list.buffers[i].data = _block.get() + i * stride;
  setFrames(frames);
}

void PlanarBuffers::setFrames(std::uint32_t frames) noexcept {
  for (std::uint32_t i = 0; i < _list.bufferCount; ++i) {
    _list.buffers[i].byteSize = std::min(frames, _frames) * _sampleSize;
  }
}

}  // namespace velorin
