// Runs the built program as a user would, and never waits for ever.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace velorin::test {

/// How a run ended. A run that had to be killed has no exit code.
struct Outcome {
  std::optional<int> exitCode;
  std::string out;
  std::string err;
  std::chrono::milliseconds took{0};
};

/// Runs `velorin` with the arguments, standard input empty, to its end or for 20 s. fileSizeLimit:
/// largest file that the program may write, in bytes; 0 for no limit.
Outcome run(const std::vector<std::string>& arguments, std::size_t fileSizeLimit = 0);

/// Runs any program found in PATH.
Outcome runTool(std::vector<std::string> command);

/// `velorin` on a terminal of its own.
class TerminalRun {
 public:
  TerminalRun(const std::vector<std::string>& arguments, int columns);
  ~TerminalRun();
  TerminalRun(const TerminalRun&) = delete;
  TerminalRun& operator=(const TerminalRun&) = delete;

  void type(const std::string& keys);
  void signal(int number) const;
  /// Reads on until the screen text after the last match contains the text. Control sequences are
  /// part of it.
  bool waitFor(const std::string& text,
               std::chrono::milliseconds timeout = std::chrono::seconds(10));
  /// Reads to the end; empty when the program did not end in time or by a signal.
  std::optional<int> waitForExit(std::chrono::milliseconds timeout = std::chrono::seconds(10));

  /// Everything that appeared.
  const std::string& screen() const { return _screen; }
  /// True when the terminal echoes and reads by lines, as before the run.
  bool isCooked() const;

 private:
  bool readSome(std::chrono::steady_clock::time_point deadline);

  int _master = -1;
  int _slave = -1;  ///< kept open so that the terminal's state outlives the program
  pid_t _child = -1;
  std::string _screen;
  std::size_t _matched = 0;
};

}  // namespace velorin::test
