#include "engine/dsd/DSDChannelReader.h"

#include <algorithm>
#include <cstring>
#include <system_error>

namespace velorin {
namespace {

// Enough to make a read of the file cheap, little enough to stay in the processor's cache.
constexpr std::size_t kReadBytes = std::size_t{1} << 15;
// Blocks of at least this size are handed out where they stand.
constexpr std::size_t kLargeBlock = 512;

// The even bytes of a little-endian word, in their order, to its lower half.
std::uint64_t evenBytes(std::uint64_t word) noexcept {
  word &= 0x00ff00ff00ff00ff;
  word = (word | word >> 8) & 0x0000ffff0000ffff;
  return (word | word >> 16) & 0x00000000ffffffff;
}

void split(const std::uint8_t* pairs, std::uint8_t* left, std::uint8_t* right,
           std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    std::uint64_t words[2];
    std::memcpy(words, pairs + 2 * i, sizeof words);
    const std::uint64_t first = evenBytes(words[0]) | evenBytes(words[1]) << 32;
    const std::uint64_t second = evenBytes(words[0] >> 8) | evenBytes(words[1] >> 8) << 32;
    std::memcpy(left + i, &first, sizeof first);
    std::memcpy(right + i, &second, sizeof second);
  }
  for (; i < count; ++i) {
    left[i] = pairs[2 * i];
    right[i] = pairs[2 * i + 1];
  }
}

}  // namespace

DSDChannelReader::DSDChannelReader(std::unique_ptr<ReadableFile> file, const DSDLayout& layout)
    : _file(std::move(file)),
      _layout(layout),
      _blockSize(layout.blockSizePerChannel),
      _setSize(_blockSize * layout.channelCount),
      _sets(std::max<std::size_t>(1, kReadBytes / _setSize)),
      _isGathered(_blockSize < kLargeBlock && layout.channelCount > 1),
      _raw(_sets * _setSize),
      _runs(_isGathered ? _raw.size() : 0) {}

void DSDChannelReader::seek(std::uint64_t position) noexcept {
  _position = std::min(position, _layout.bytesPerChannel);
}

std::size_t DSDChannelReader::fetch(std::size_t wanted) noexcept {
  wanted = static_cast<std::size_t>(
      std::min<std::uint64_t>(wanted, _layout.bytesPerChannel - _position));
  if (wanted == 0) return 0;
  // Unsigned: a position before what is loaded is far behind it.
  if (_position - _loadedFrom >= _loadedBytes && !load()) return 0;
  const auto at = static_cast<std::size_t>(_position - _loadedFrom);
  std::size_t count = std::min(wanted, _loadedBytes - at);
  if (_isGathered) {
    _stride = _sets * _blockSize;
    _fetched = _runs.data() + at;
  } else if (_layout.channelCount == 1) {
    _fetched = _raw.data() + at;
  } else {
    const std::size_t inBlock = at % _blockSize;
    count = std::min(count, _blockSize - inBlock);
    _stride = _blockSize;
    _fetched = _raw.data() + at / _blockSize * _setSize + inBlock;
  }
  _position += count;
  return count;
}

bool DSDChannelReader::load() noexcept {
  const std::uint64_t firstSet = _position / _blockSize;
  const std::uint64_t from = _layout.dataOffset + firstSet * _setSize;
  std::size_t filled = 0;
  try {
    if (_file->offset() != from) _file->seek(from);
    while (filled < _raw.size()) {
      const std::size_t count =
          _file->readInto(std::as_writable_bytes(std::span(_raw)).subspan(filled));
      if (count == 0) break;
      filled += count;
    }
  } catch (const std::system_error&) {
    filled = 0;
  }
  _loadedFrom = firstSet * _blockSize;
  // Of a set that is cut short, the last channel has the least.
  const std::size_t rest = filled % _setSize;
  const std::size_t before = _setSize - _blockSize;
  _loadedBytes = filled / _setSize * _blockSize + (rest > before ? rest - before : 0);
  if (_isGathered) gather();
  return _position - _loadedFrom < _loadedBytes;
}

void DSDChannelReader::gather() noexcept {
  const std::size_t stride = _sets * _blockSize;
  if (_blockSize == 1 && _layout.channelCount == 2) {
    split(_raw.data(), _runs.data(), _runs.data() + stride, _loadedBytes);
    return;
  }
  for (std::uint32_t channel = 0; channel < _layout.channelCount; ++channel) {
    const std::uint8_t* from = _raw.data() + channel * _blockSize;
    std::uint8_t* to = _runs.data() + channel * stride;
    for (std::size_t set = 0; set < _sets; ++set, from += _setSize, to += _blockSize) {
      std::memcpy(to, from, _blockSize);
    }
  }
}

}  // namespace velorin
