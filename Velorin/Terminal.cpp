#include "Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <cwchar>

#include "foundation/Text.h"

namespace velorin::terminal {
namespace {

// What restoreForExit() needs, where a signal handler may read it.
std::atomic<int> rawDescriptor{-1};
termios rawOriginal;

int widthOf(char32_t character) noexcept {
  const int width = ::wcwidth(static_cast<wchar_t>(character));
  return width < 0 ? 1 : width;
}

}  // namespace

bool isInteractive(int descriptor) noexcept {
  if (!::isatty(descriptor)) return false;
  const char* type = std::getenv("TERM");
  return type != nullptr && std::string_view(type) != "dumb" && *type != '\0';
}

int columnsOf(int descriptor) noexcept {
  winsize size{};
  return ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

int columnsTaken(std::string_view utf8) noexcept {
  int columns = 0;
  for (std::size_t at = 0; at < utf8.size();) {
    const text::CodePoint point = text::decode(utf8, at);
    columns += widthOf(point.value);
    at += point.length;
  }
  return columns;
}

std::string fitted(std::string_view utf8, int columns) {
  if (columns <= 0) return {};
  if (columnsTaken(utf8) <= columns) return std::string(utf8);
  int used = 1;  // the ellipsis
  std::size_t at = 0;
  while (at < utf8.size()) {
    const text::CodePoint point = text::decode(utf8, at);
    const int width = widthOf(point.value);
    if (used + width > columns) break;
    used += width;
    at += point.length;
  }
  std::string_view kept = utf8.substr(0, at);
  while (kept.ends_with(' ')) kept.remove_suffix(1);
  return std::string(kept) + "…";
}

std::string fittedEnd(std::string_view utf8, int columns) {
  if (columns <= 0) return {};
  const int taken = columnsTaken(utf8);
  if (taken <= columns) return std::string(utf8);
  int excess = taken - columns + 1;  // the ellipsis
  std::size_t at = 0;
  while (at < utf8.size()) {
    const text::CodePoint point = text::decode(utf8, at);
    const int width = widthOf(point.value);
    // A mark that combines with what was cut off goes with it.
    if (excess <= 0 && width > 0) break;
    excess -= width;
    at += point.length;
  }
  return "…" + std::string(utf8.substr(at));
}

void useUTF8() noexcept {
  if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) std::setlocale(LC_CTYPE, "");
}

RawMode::RawMode(int descriptor) noexcept : _descriptor(descriptor) {
  resume();
}

RawMode::~RawMode() {
  suspend();
}

void RawMode::resume() noexcept {
  // In the background the terminal belongs to another process: changing it would stop us.
  if (_active || ::tcgetpgrp(_descriptor) != ::getpgrp()) return;
  if (::tcgetattr(_descriptor, &_original) != 0) return;
  termios raw = _original;
  raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  raw.c_cc[VMIN] = 1;
  raw.c_cc[VTIME] = 0;
  if (::tcsetattr(_descriptor, TCSADRAIN, &raw) != 0) return;
  _active = true;
  rawOriginal = _original;
  rawDescriptor.store(_descriptor, std::memory_order_release);
}

void RawMode::suspend() noexcept {
  if (!_active) return;
  _active = false;
  rawDescriptor.store(-1, std::memory_order_release);
  ::tcsetattr(_descriptor, TCSADRAIN, &_original);
}

void RawMode::restoreForExit() noexcept {
  const int descriptor = rawDescriptor.exchange(-1, std::memory_order_acquire);
  if (descriptor >= 0) ::tcsetattr(descriptor, TCSANOW, &rawOriginal);
}

}  // namespace velorin::terminal
