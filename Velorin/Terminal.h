// The terminal that the program was started from.
#pragma once

#include <termios.h>

#include <atomic>
#include <string>
#include <string_view>

namespace velorin::terminal {

/// True when the descriptor is a terminal that moves its cursor: not a file, a pipe or "dumb".
bool isInteractive(int descriptor) noexcept;

/// Columns of the terminal, 80 when it does not tell.
int columnsOf(int descriptor) noexcept;

/// Columns that the text takes. Text with control characters must be escaped before. Needs a
/// UTF-8 locale for characters that are not one column wide; see useUTF8().
int columnsTaken(std::string_view utf8) noexcept;

/// The text, or as much of its beginning as fits with "…" at the end.
std::string fitted(std::string_view utf8, int columns);

/// The text, or as much of its end as fits with "…" before it.
std::string fittedEnd(std::string_view utf8, int columns);

/// Makes column counts right for any character. Once, at the start of the program.
void useUTF8() noexcept;

/// Keys arrive one by one and unseen while this lives; signals keep their keys. Restores the
/// terminal when destroyed. Main thread.
class RawMode {
 public:
  explicit RawMode(int descriptor) noexcept;
  ~RawMode();
  RawMode(const RawMode&) = delete;
  RawMode& operator=(const RawMode&) = delete;

  /// Gives the terminal back for a while, e.g. while the process is stopped.
  void suspend() noexcept;
  void resume() noexcept;
  bool isActive() const noexcept { return _active; }

  /// For a process that ends at once: restores whatever is raw now. Safe in a signal handler.
  static void restoreForExit() noexcept;

 private:
  int _descriptor;
  termios _original{};
  bool _active = false;
};

}  // namespace velorin::terminal
