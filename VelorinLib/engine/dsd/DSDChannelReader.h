// The bytes of one-bit sound, channel by channel.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "engine/decoders/ReadableFile.h"
#include "engine/dsd/DSDLayout.h"

namespace velorin {

/// Reads the sound of a file whose layout was parsed, and nothing behind it. Positions count bytes
/// of one channel. One thread at a time; only the constructor allocates.
class DSDChannelReader {
 public:
  /// Stands at the first byte of sound. Throws std::bad_alloc.
  DSDChannelReader(std::unique_ptr<ReadableFile> file, const DSDLayout& layout);

  /// Moves, at most to the end of the sound. Reads nothing yet.
  void seek(std::uint64_t position) noexcept;

  /// Takes up to `wanted` further bytes of each channel; where blocks end, fewer. 0 at the end of
  /// the sound, and where the file cannot be read on, which counts as its end.
  std::size_t fetch(std::size_t wanted) noexcept;

  /// What the last fetch() took of a channel, as it stands in the file. Until the next fetch().
  const std::uint8_t* channel(std::uint32_t index) const noexcept {
    return _fetched + index * _stride;
  }

  /// Of the next byte that fetch() takes.
  std::uint64_t position() const noexcept { return _position; }

 private:
  bool load() noexcept;
  void gather() noexcept;

  const std::unique_ptr<ReadableFile> _file;
  const DSDLayout _layout;
  const std::size_t _blockSize;
  const std::size_t _setSize;  // bytes of a block of every channel
  const std::size_t _sets;     // block sets that are read at once
  const bool _isGathered;      // blocks are small, and put together to one run a channel
  std::vector<std::uint8_t> _raw;
  std::vector<std::uint8_t> _runs;
  std::uint64_t _loadedFrom = 0;  // position of the first byte in memory
  std::size_t _loadedBytes = 0;   // of each channel
  std::uint64_t _position = 0;
  const std::uint8_t* _fetched = nullptr;
  std::size_t _stride = 0;  // from channel to channel in what was fetched
};

}  // namespace velorin
