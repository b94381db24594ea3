// A program that is killed in the middle of its work, and says byte by byte how far it got.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string>
#include <vector>

namespace velorin::test {

/// The child's standard output is a pipe that only its owner reads. One thread.
class ReportingChild {
 public:
  explicit ReportingChild(std::vector<std::string> arguments) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    const int failed = ::posix_spawn(&_process, argv[0], &actions, nullptr, argv.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    _pipe = ends[0];
    if (failed != 0) throw std::runtime_error("cannot start " + arguments[0]);
  }

  ~ReportingChild() {
    if (_process > 0) kill();
    ::close(_pipe);
  }
  ReportingChild(const ReportingChild&) = delete;
  ReportingChild& operator=(const ReportingChild&) = delete;

  /// Waits until it has reported this byte so many times, or has ended.
  void waitFor(char report, int times) {
    while (std::count(_reports.begin(), _reports.end(), report) < times && readMore()) {
    }
  }

  /// SIGKILL after so much longer. True when it was still alive.
  bool kill(std::chrono::microseconds longer = {}) {
    const auto until = std::chrono::steady_clock::now() + longer;
    while (std::chrono::steady_clock::now() < until) {
    }
    ::kill(_process, SIGKILL);
    int status = 0;
    ::waitpid(_process, &status, 0);
    _process = -1;
    while (readMore()) {
    }
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  }

  /// All that it reported, complete once it was killed.
  const std::string& reports() const { return _reports; }

 private:
  bool readMore() {
    char bytes[256];
    const ssize_t count = ::read(_pipe, bytes, sizeof(bytes));
    if (count <= 0) return false;
    _reports.append(bytes, static_cast<std::size_t>(count));
    return true;
  }

  pid_t _process = -1;
  int _pipe = -1;
  std::string _reports;
};

}  // namespace velorin::test
