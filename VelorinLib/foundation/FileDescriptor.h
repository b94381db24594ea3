// Owns a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace velorin {

/// -1 stands for none. One thread at a time.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) noexcept : _descriptor(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept
      : _descriptor(std::exchange(other._descriptor, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(_descriptor, other._descriptor);
    return *this;
  }
  ~FileDescriptor() {
    if (_descriptor >= 0) ::close(_descriptor);
  }

  explicit operator bool() const noexcept { return _descriptor >= 0; }
  int get() const noexcept { return _descriptor; }

  /// Gives it to another owner.
  int release() noexcept { return std::exchange(_descriptor, -1); }

  /// False, with errno, when the system reports a failed write only now.
  bool close() noexcept { return ::close(std::exchange(_descriptor, -1)) == 0; }

 private:
  int _descriptor = -1;
};

}  // namespace velorin
