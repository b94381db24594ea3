#include "shell/InstanceSocket.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>

#include "foundation/Text.h"

namespace velorin::instance {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kLockName = "player.lock";
constexpr const char* kSocketName = "player.sock";
constexpr std::chrono::milliseconds kRetryInterval{20};
constexpr int kBacklog = 64;

Failure failure(const fs::path& path, int error, const char* advice) {
  return {fmt::format("{}: {}: {}", text::pathForDisplay(path),
                      std::generic_category().message(error), advice)};
}

/// The folder, opened as a place; made when missing.
std::variant<FileDescriptor, Failure> openDirectory(const fs::path& directory) {
  constexpr const char* kAdvice = "make it a folder of your own, or set XDG_RUNTIME_DIR";
  std::error_code ignored;
  fs::create_directories(directory.parent_path(), ignored);
  if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
    return failure(directory, errno, kAdvice);
  }
  FileDescriptor folder(::open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat status {};
  if (!folder || ::fstat(folder.get(), &status) != 0) return failure(directory, errno, kAdvice);
  if (status.st_uid != ::geteuid()) return failure(directory, EPERM, kAdvice);
  return folder;
}

enum class LockState { taken, held };

std::variant<LockState, Failure> tryLock(const fs::path& directory, const FileDescriptor& folder,
                                         FileDescriptor& lock) {
  constexpr const char* kAdvice = "make the folder writable";
  if (!lock) {
    lock = FileDescriptor(::openat(folder.get(), kLockName, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  }
  if (!lock) return failure(directory / kLockName, errno, kAdvice);
  if (::flock(lock.get(), LOCK_EX | LOCK_NB) == 0) return LockState::held;
  if (errno == EWOULDBLOCK) return LockState::taken;
  return failure(directory / kLockName, errno, kAdvice);
}

/// An address is at most 107 bytes; a path through the open folder fits whatever the folder's name.
sockaddr_un addressIn(const FileDescriptor& folder) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = fmt::format("/proc/self/fd/{}/{}", folder.get(), kSocketName);
  std::copy(path.begin(), path.end(), address.sun_path);
  return address;
}

const sockaddr* generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

bool waitFor(int socket, short events, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd watched{socket, events, 0};
    const int ready =
        ::poll(&watched, 1, static_cast<int>(std::max<std::int64_t>(0, left.count())));
    if (ready >= 0 || errno != EINTR) return ready > 0;
  }
}

enum class Trouble { unreachable, timeout };

std::variant<std::string, Trouble> exchange(const FileDescriptor& folder, std::string_view line,
                                            Clock::time_point deadline) {
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const sockaddr_un address = addressIn(folder);
  if (!socket || ::connect(socket.get(), generic(address), sizeof(address)) != 0) {
    return Trouble::unreachable;
  }
  while (!line.empty()) {
    if (!waitFor(socket.get(), POLLOUT, deadline)) return Trouble::timeout;
    const ssize_t sent = ::send(socket.get(), line.data(), line.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno != EAGAIN && errno != EINTR) return Trouble::unreachable;
    if (sent > 0) line.remove_prefix(static_cast<std::size_t>(sent));
  }
  std::string answer;
  std::array<char, 4096> bytes{};
  while (!answer.ends_with('\n') && answer.size() < kLongestInstanceLine) {
    if (!waitFor(socket.get(), POLLIN, deadline)) return Trouble::timeout;
    const ssize_t count = ::recv(socket.get(), bytes.data(), bytes.size(), 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    // It ended before it had answered.
    if (count <= 0) return Trouble::unreachable;
    answer.append(bytes.data(), static_cast<std::size_t>(count));
  }
  return answer;
}

using Attempt = std::variant<LockState, InstanceAnswer, Failure>;

/// Looks whether the lock is free, and asks the player when it is not, until one of the two works.
Attempt lockOrAsk(const fs::path& directory, const InstanceRequest& request,
                  const Patience& patience, FileDescriptor& lock) {
  const auto opened = openDirectory(directory);
  if (const auto* failed = std::get_if<Failure>(&opened)) return *failed;
  const FileDescriptor& folder = std::get<FileDescriptor>(opened);
  const std::string line = encode(request);
  if (line.size() > kLongestInstanceLine) return Failure{"too many files: give a folder instead"};
  const auto deadline = Clock::now() + patience.forPlayer;
  for (;;) {
    const auto state = tryLock(directory, folder, lock);
    if (const auto* failed = std::get_if<Failure>(&state)) return *failed;
    if (std::get<LockState>(state) == LockState::held) return LockState::held;
    const auto answer = exchange(folder, line, Clock::now() + patience.forAnswer);
    if (const auto* text = std::get_if<std::string>(&answer)) {
      auto decoded = decodeAnswer(*text);
      if (!decoded) return Failure{decoded.error().text};
      return std::move(decoded).value();
    }
    if (std::get<Trouble>(answer) == Trouble::timeout || Clock::now() > deadline) {
      return Failure{"the player that is running does not answer: end it and try again"};
    }
    // It starts and does not listen yet, or is about to end.
    std::this_thread::sleep_for(kRetryInterval);
  }
}

}  // namespace

std::variant<Lock, InstanceAnswer, Failure> becomeOrAsk(const fs::path& directory,
                                                        const InstanceRequest& request,
                                                        Patience patience) {
  FileDescriptor lock;
  Attempt attempt = lockOrAsk(directory, request, patience, lock);
  if (auto* answer = std::get_if<InstanceAnswer>(&attempt)) return std::move(*answer);
  if (auto* failed = std::get_if<Failure>(&attempt)) return std::move(*failed);
  return Lock{std::move(lock)};
}

std::variant<NoPlayer, InstanceAnswer, Failure> ask(const fs::path& directory,
                                                    const InstanceRequest& request,
                                                    Patience patience) {
  FileDescriptor lock;  // given back at the end: this process does not become the player
  Attempt attempt = lockOrAsk(directory, request, patience, lock);
  if (auto* answer = std::get_if<InstanceAnswer>(&attempt)) return std::move(*answer);
  if (auto* failed = std::get_if<Failure>(&attempt)) return std::move(*failed);
  return NoPlayer{};
}

std::variant<FileDescriptor, Failure> listen(const fs::path& directory) {
  constexpr const char* kAdvice = "make the folder writable, on a file system that takes sockets";
  const auto opened = openDirectory(directory);
  if (const auto* failed = std::get_if<Failure>(&opened)) return *failed;
  const FileDescriptor& folder = std::get<FileDescriptor>(opened);
  ::unlinkat(folder.get(), kSocketName, 0);
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const sockaddr_un address = addressIn(folder);
  if (!socket || ::bind(socket.get(), generic(address), sizeof(address)) != 0 ||
      ::fchmodat(folder.get(), kSocketName, 0600, 0) != 0 ||
      ::listen(socket.get(), kBacklog) != 0) {
    return failure(directory / kSocketName, errno, kAdvice);
  }
  return socket;
}

void removeSocket(const fs::path& directory) noexcept {
  ::unlink((directory / kSocketName).c_str());
}

}  // namespace velorin::instance
