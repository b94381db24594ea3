// Lines and one status line on the terminal, without the one tearing the other.
#pragma once

#include <string>
#include <string_view>

#include "foundation/Mutex.h"

namespace velorin {

/// On a terminal the status stays below all lines and is redrawn in place; elsewhere there is
/// none, and nothing but the lines is written: no control codes. Text is to be escaped for a
/// terminal beforehand. Any thread.
class Console {
 public:
  /// statusDescriptor: where the status is shown if that is a terminal that can redraw a line.
  explicit Console(int statusDescriptor);
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  bool isInteractive() const noexcept { return _interactive; }
  /// Columns that a status may take.
  int columns() const noexcept;

  /// A line on standard output.
  void print(std::string_view line);
  /// A line on standard error.
  void printError(std::string_view line);
  /// What the status line shows from now on; empty for none.
  void setStatus(std::string status);
  /// Takes the status off the screen until setStatus() is called again.
  void clearStatus() { setStatus({}); }

 private:
  void printTo(int descriptor, std::string_view line);

  const int _statusDescriptor;
  const bool _interactive;
  Mutex _mutex;
  std::string _status GUARDED_BY(_mutex);
};

/// "velorin: what: what to do", escaped, one line on standard error. For errors before or without
/// a Console.
void reportError(std::string_view text);

/// Ends a command that has printed its result on standard output: the exit code, after an error
/// line when the output could not be written.
int finishOutput();

}  // namespace velorin
