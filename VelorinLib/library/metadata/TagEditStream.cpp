#include "library/metadata/TagEditStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace velorin {

std::unique_ptr<TagEditStream> TagEditStream::open(const std::string& path, std::string name) {
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (descriptor < 0) return nullptr;
  return std::unique_ptr<TagEditStream>(new TagEditStream(descriptor, std::move(name)));
}

TagEditStream::~TagEditStream() {
  ::close(_descriptor);
}

long TagEditStream::length() {
  struct stat status {};
  return ::fstat(_descriptor, &status) == 0 ? static_cast<long>(status.st_size) : 0;
}

std::size_t TagEditStream::readAt(long offset, char* bytes, std::size_t count) {
  std::size_t done = 0;
  while (done < count) {
    const ssize_t got =
        ::pread(_descriptor, bytes + done, count - done, offset + static_cast<long>(done));
    if (got < 0 && errno == EINTR) continue;
    // Part of the file that cannot be read would be lost in what is written.
    if (got < 0 && _failure == 0) _failure = errno;
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

void TagEditStream::writeAt(long offset, const char* bytes, std::size_t count) {
  while (count > 0 && _failure == 0) {
    const ssize_t put = ::pwrite(_descriptor, bytes, count, offset);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) {
      _failure = put < 0 ? errno : EIO;
      return;
    }
    bytes += put;
    offset += put;
    count -= static_cast<std::size_t>(put);
  }
}

TagLib::ByteVector TagEditStream::readBlock(unsigned long length) {
  const long left = this->length() - _position;
  if (left <= 0) return {};
  TagLib::ByteVector bytes(
      static_cast<unsigned>(std::min(length, static_cast<unsigned long>(left))), '\0');
  const std::size_t got = readAt(_position, bytes.data(), bytes.size());
  bytes.resize(static_cast<unsigned>(got));
  _position += static_cast<long>(got);
  return bytes;
}

void TagEditStream::writeBlock(const TagLib::ByteVector& data) {
  writeAt(_position, data.data(), data.size());
  _position += static_cast<long>(data.size());
}

void TagEditStream::moveTail(long from, long to) {
  constexpr long kStep = 1 << 20;
  std::vector<char> buffer(static_cast<std::size_t>(kStep));
  const long end = length();
  const long total = std::max(end - from, 0L);
  // Backward when the tail grows over itself.
  for (long done = 0; done < total && _failure == 0;) {
    const long count = std::min(kStep, total - done);
    const long offset = to > from ? total - done - count : done;
    const std::size_t got = readAt(from + offset, buffer.data(), static_cast<std::size_t>(count));
    if (got < static_cast<std::size_t>(count) && _failure == 0) _failure = EIO;
    writeAt(to + offset, buffer.data(), got);
    done += count;
  }
  if (to < from) truncate(to + total);
}

void TagEditStream::insert(const TagLib::ByteVector& data, unsigned long start,
                           unsigned long replace) {
  const long end = length();
  const long at = std::min(static_cast<long>(start), end);
  const long tail = at + std::min(static_cast<long>(replace), end - at);
  const long newTail = at + static_cast<long>(data.size());
  if (newTail != tail) moveTail(tail, newTail);
  writeAt(at, data.data(), data.size());
  _position = newTail;
}

void TagEditStream::removeBlock(unsigned long start, unsigned long length) {
  insert({}, start, length);
}

void TagEditStream::truncate(long length) {
  if (_failure == 0 && ::ftruncate(_descriptor, length) != 0) _failure = errno;
}

void TagEditStream::seek(long offset, Position position) {
  const long base = position == Beginning ? 0 : position == Current ? _position : length();
  long target = 0;
  if (__builtin_add_overflow(base, offset, &target)) return;
  _position = std::max(target, 0L);
}

}  // namespace velorin
