#include "Program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <array>
#include <csignal>
#include <stdexcept>

namespace velorin::test {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kTimeout{20};

std::vector<char*> pointersTo(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (std::string& each : strings) pointers.push_back(each.data());
  pointers.push_back(nullptr);
  return pointers;
}

int pollTimeout(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return static_cast<int>(std::max<std::int64_t>(0, left.count()));
}

/// Reads both descriptors to their ends, or to the deadline: then false.
bool drain(int out, int err, Outcome& outcome, Clock::time_point deadline) {
  std::array<pollfd, 2> streams{{{out, POLLIN, 0}, {err, POLLIN, 0}}};
  std::array<std::string*, 2> texts{&outcome.out, &outcome.err};
  while (streams[0].fd >= 0 || streams[1].fd >= 0) {
    const int ready = ::poll(streams.data(), streams.size(), pollTimeout(deadline));
    if (ready == 0) return false;
    for (std::size_t i = 0; i < streams.size(); ++i) {
      if (streams[i].fd < 0 || streams[i].revents == 0) continue;
      std::array<char, 65536> bytes;
      const ssize_t count = ::read(streams[i].fd, bytes.data(), bytes.size());
      if (count > 0) {
        texts[i]->append(bytes.data(), static_cast<std::size_t>(count));
      } else {
        streams[i].fd = -1;
      }
    }
  }
  return true;
}

std::optional<int> exitCodeOf(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

}  // namespace

Outcome run(const std::vector<std::string>& arguments, std::size_t fileSizeLimit) {
  std::vector<std::string> command = {VELORIN_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  if (fileSizeLimit > 0) {
    command.insert(command.begin(), {"prlimit", "--fsize=" + std::to_string(fileSizeLimit)});
  }
  return runTool(std::move(command));
}

Outcome runTool(std::vector<std::string> command) {
  std::array<int, 2> out, err;
  if (::pipe2(out.data(), O_CLOEXEC) != 0 || ::pipe2(err.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipes");
  }
  const auto begin = Clock::now();
  std::vector<char*> arguments = pointersTo(command);
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
    ::dup2(out[1], STDOUT_FILENO);
    ::dup2(err[1], STDERR_FILENO);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
  }
  ::close(out[1]);
  ::close(err[1]);
  Outcome outcome;
  if (!drain(out[0], err[0], outcome, begin + kTimeout)) ::kill(child, SIGKILL);
  ::close(out[0]);
  ::close(err[0]);
  outcome.exitCode = exitCodeOf(child);
  outcome.took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
  return outcome;
}

TerminalRun::TerminalRun(const std::vector<std::string>& arguments, int columns) {
  winsize size{};
  size.ws_col = static_cast<unsigned short>(columns);
  size.ws_row = 24;
  if (::openpty(&_master, &_slave, nullptr, nullptr, &size) != 0) {
    throw std::runtime_error("no pseudo terminal");
  }
  std::vector<std::string> command = {VELORIN_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers = pointersTo(command);
  _child = ::fork();
  if (_child == 0) {
    ::close(_master);
    ::setenv("TERM", "xterm", 1);
    ::login_tty(_slave);
    ::execv(pointers[0], pointers.data());
    ::_exit(127);
  }
}

TerminalRun::~TerminalRun() {
  if (_child > 0) {
    ::kill(_child, SIGKILL);
    ::waitpid(_child, nullptr, 0);
  }
  ::close(_slave);
  ::close(_master);
}

void TerminalRun::type(const std::string& keys) {
  if (::write(_master, keys.data(), keys.size()) < 0) throw std::runtime_error("cannot type");
}

void TerminalRun::signal(int number) const {
  ::kill(_child, number);
}

bool TerminalRun::readSome(Clock::time_point deadline) {
  pollfd stream{_master, POLLIN, 0};
  if (::poll(&stream, 1, pollTimeout(deadline)) <= 0) return false;
  std::array<char, 4096> bytes;
  const ssize_t count = ::read(_master, bytes.data(), bytes.size());
  if (count <= 0) return false;
  _screen.append(bytes.data(), static_cast<std::size_t>(count));
  return true;
}

bool TerminalRun::waitFor(const std::string& text, std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  while (true) {
    if (const std::size_t at = _screen.find(text, _matched); at != std::string::npos) {
      _matched = at + text.size();
      return true;
    }
    if (!readSome(deadline)) return false;
  }
}

std::optional<int> TerminalRun::waitForExit(std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  while (Clock::now() < deadline) {
    int status = 0;
    if (::waitpid(_child, &status, WNOHANG) == _child) {
      _child = -1;
      while (readSome(Clock::now())) {
      }
      return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
    }
    readSome(Clock::now() + std::chrono::milliseconds(10));
  }
  return std::nullopt;
}

bool TerminalRun::isCooked() const {
  termios state{};
  return ::tcgetattr(_slave, &state) == 0 && (state.c_lflag & ICANON) != 0 &&
         (state.c_lflag & ECHO) != 0;
}

}  // namespace velorin::test
