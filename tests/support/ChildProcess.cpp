#include "support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <thread>

namespace velorin::test {
namespace {

// Only calls that are safe between fork and exec in a program with threads.
pid_t spawn(const std::vector<std::string>& arguments, int output) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  if (child != 0) return child;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(126);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(output, STDERR_FILENO);
  ::execvp(argv[0], argv.data());
  ::_exit(127);
}

}  // namespace

std::filesystem::path findProgram(const std::string& name) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(path ? path : "");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const auto file = std::filesystem::path(folder) / name;
    if (::access(file.c_str(), X_OK) == 0) return file;
  }
  return {};
}

ChildProcess::~ChildProcess() {
  end();
}

bool ChildProcess::start(const std::vector<std::string>& arguments,
                         const std::filesystem::path& logFile) {
  end();
  const int output = ::open(logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (output < 0) return false;
  _pid = spawn(arguments, output);
  ::close(output);
  return _pid > 0;
}

bool ChildProcess::isRunning() {
  return _pid > 0 && !waitUpTo({});
}

void ChildProcess::signal(int number) {
  if (_pid > 0) ::kill(_pid, number);
}

void ChildProcess::end() {
  signal(SIGTERM);
  if (!waitUpTo(std::chrono::seconds(1))) kill();
}

void ChildProcess::kill() {
  signal(SIGKILL);
  if (_pid > 0) ::waitpid(_pid, nullptr, 0);
  _pid = -1;
}

bool ChildProcess::waitUpTo(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (_pid > 0) {
    if (::waitpid(_pid, nullptr, WNOHANG) != 0) {
      _pid = -1;
      break;
    }
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

std::string runProgram(const std::vector<std::string>& arguments,
                       std::chrono::milliseconds timeout) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return {};
  const pid_t child = spawn(arguments, ends[1]);
  ::close(ends[1]);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  std::string text;
  while (child > 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd ready{ends[0], POLLIN, 0};
    if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) <= 0) {
      ::kill(child, SIGKILL);
      break;
    }
    char buffer[4096];
    const ssize_t count = ::read(ends[0], buffer, sizeof(buffer));
    if (count <= 0) break;
    text.append(buffer, static_cast<std::size_t>(count));
  }
  ::close(ends[0]);
  if (child > 0) ::waitpid(child, nullptr, 0);
  return text;
}

}  // namespace velorin::test
