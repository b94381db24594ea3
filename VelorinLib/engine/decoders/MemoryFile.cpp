#include "engine/decoders/MemoryFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace velorin {

std::vector<std::byte> MemoryFile::read(std::size_t count) {
  std::vector<std::byte> bytes(std::min<std::size_t>(count, size() - _offset));
  readInto(bytes);
  return bytes;
}

std::size_t MemoryFile::readInto(std::span<std::byte> destination) noexcept {
  const std::size_t count = std::min<std::size_t>(destination.size(), size() - _offset);
  if (count > 0) std::memcpy(destination.data(), _bytes->data() + _offset, count);
  _offset += count;
  return count;
}

void MemoryFile::seek(std::uint64_t offset) {
  if (offset > size()) throw std::system_error(EINVAL, std::generic_category(), "seek");
  _offset = static_cast<std::size_t>(offset);
}

}  // namespace velorin
