#include "platform/files/RunProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace velorin {
namespace {

constexpr std::chrono::seconds kLongestDeath{1};

/// Waits until the process has ended, or the time is over.
bool waitForEnd(pid_t process, std::chrono::milliseconds patience) {
  // glibc 2.36 has no wrapper in C++ headers that could be relied on.
  const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
  if (descriptor < 0) return false;
  const auto deadline = std::chrono::steady_clock::now() + patience;
  pollfd wait{descriptor, POLLIN, 0};
  int ready = 0;
  do {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    ready = ::poll(&wait, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
  } while (ready < 0 && errno == EINTR);
  ::close(descriptor);
  return ready > 0;
}

}  // namespace

bool runProgram(const std::vector<std::string>& arguments, std::chrono::milliseconds patience) {
  std::vector<char*> argv;
  for (const std::string& each : arguments) argv.push_back(const_cast<char*>(each.c_str()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t process = -1;
  const int failed = ::posix_spawnp(&process, argv[0], &actions, nullptr, argv.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) return false;

  if (!waitForEnd(process, patience)) {
    ::kill(process, SIGKILL);
    // One that waits in the kernel may outlive even this.
    if (!waitForEnd(process, kLongestDeath)) return false;
  }
  int status = 0;
  while (::waitpid(process, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace velorin
