// A program started by a test, which does not outlive it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace velorin::test {

/// The program of that name on the search path, empty when there is none.
std::filesystem::path findProgram(const std::string& name);

/// A child with this process's environment. The kernel kills it should the thread that started it
/// end first. Not movable; one thread at a time.
class ChildProcess {
 public:
  ChildProcess() = default;
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Starts the program, its output and errors appended to a file. False when it cannot be.
  bool start(const std::vector<std::string>& arguments, const std::filesystem::path& logFile);
  bool isRunning();
  pid_t pid() const noexcept { return _pid; }
  void signal(int number);
  /// SIGTERM, and SIGKILL to one that is still there after a second.
  void end();
  /// SIGKILL.
  void kill();

 private:
  bool waitUpTo(std::chrono::milliseconds timeout);
  pid_t _pid = -1;
};

/// Runs a short program to its end; what it printed, errors included. Kills it after the timeout.
std::string runProgram(const std::vector<std::string>& arguments,
                       std::chrono::milliseconds timeout = std::chrono::seconds(5));

}  // namespace velorin::test
