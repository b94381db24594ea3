#include "engine/joins/CrossfadeOldSide.h"

#include <algorithm>
#include <cstring>

namespace velorin {

CrossfadeOldSide::CrossfadeOldSide(std::unique_ptr<SourceReader> reader,
                                   const StreamFormat& clientFormat, std::uint32_t largestTake)
    : _reader(std::move(reader)),
      _channels(clientFormat.channelsPerFrame),
      // A block is read only while less than one take is held.
      _held(_channels, largestTake + _reader->chunk(), clientFormat.bytesPerFrame) {}

std::uint32_t CrossfadeOldSide::take(std::uint32_t frames) noexcept {
  dropTaken();
  while (_heldFrames < frames && readMore()) {
  }
  _takenFrames = std::min(frames, _heldFrames);
  return _takenFrames;
}

bool CrossfadeOldSide::readMore() noexcept {
  if (!_isDraining) _isDraining = _reader->read() != SourceReader::Outcome::produced;
  if (_isDraining && !_reader->drain()) return false;

  const std::size_t size = _held.sampleSize();
  const std::uint32_t frames = std::min(_reader->frames(), _held.capacity() - _heldFrames);
  for (std::uint32_t c = 0; c < _channels; ++c) {
    std::memcpy(_held.list().channel<std::byte>(c) + _heldFrames * size,
                _reader->list().channel<std::byte>(c), frames * size);
  }
  _heldFrames += frames;
  return true;
}

void CrossfadeOldSide::dropTaken() noexcept {
  const std::size_t size = _held.sampleSize();
  _heldFrames -= _takenFrames;
  for (std::uint32_t c = 0; c < _channels && _takenFrames > 0; ++c) {
    auto* samples = _held.list().channel<std::byte>(c);
    std::memmove(samples, samples + _takenFrames * size, _heldFrames * size);
  }
  _takenFrames = 0;
}

}  // namespace velorin
