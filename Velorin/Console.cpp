#include "Console.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "Options.h"
#include "Terminal.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

constexpr std::string_view kEraseLine = "\r\x1b[K";

void writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(descriptor, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    // A reader that has gone away is no reason to stop the music.
    if (count <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace

Console::Console(int statusDescriptor)
    : _statusDescriptor(statusDescriptor),
      _interactive(terminal::isInteractive(statusDescriptor)) {}

Console::~Console() {
  clearStatus();
}

int Console::columns() const noexcept {
  // The last column stays free: a character there makes some terminals begin a new line.
  return terminal::columnsOf(_statusDescriptor) - 1;
}

void Console::print(std::string_view line) {
  printTo(STDOUT_FILENO, line);
}

void Console::printError(std::string_view line) {
  printTo(STDERR_FILENO, line);
}

void Console::printTo(int descriptor, std::string_view line) {
  const MutexLock lock(_mutex);
  if (!_status.empty() && terminal::isInteractive(descriptor)) {
    // In one piece, so that nothing flickers.
    return writeAll(descriptor, fmt::format("{}{}\n{}", kEraseLine, line, _status));
  }
  if (!_status.empty()) writeAll(_statusDescriptor, kEraseLine);
  writeAll(descriptor, std::string(line) + "\n");
  if (!_status.empty()) writeAll(_statusDescriptor, _status);
}

void Console::setStatus(std::string status) {
  if (!_interactive) return;
  const MutexLock lock(_mutex);
  if (status == _status) return;
  _status = std::move(status);
  writeAll(_statusDescriptor, std::string(kEraseLine) + _status);
}

void reportError(std::string_view text) {
  writeAll(STDERR_FILENO, "velorin: " + text::escapeForTerminal(text) + "\n");
}

int finishOutput() {
  if (std::fflush(stdout) == 0) return kExitSuccess;
  reportError("the output cannot be written: make room or choose another place");
  return kExitFailure;
}

}  // namespace velorin
