// One scan in the terminal: its progress line, its end by itself or by a signal, its summary.
#pragma once

#include <chrono>
#include <functional>

#include "Console.h"
#include "LibraryServices.h"

namespace velorin {

/// Main thread. On a terminal a line shows what was found and imported, how fast, and what is being
/// waited for; lines of the log stand above it.
class ScanSession {
 public:
  struct Display {
    bool json = false;
    bool verbose = false;
  };

  /// Sets the log up, before the library is opened.
  explicit ScanSession(Display display);
  ~ScanSession();
  ScanSession(const ScanSession&) = delete;
  ScanSession& operator=(const ScanSession&) = delete;

  /// Starts a scan by `request` and runs the loop to its end. An interrupt ends the scan within a
  /// moment: what was imported is kept, and a later scan goes on. Returns the exit code.
  int run(LibraryServices& services, const std::function<void(LibraryScanner&)>& request);

 private:
  void refresh();
  int summarise(const ScanSummary& summary);

  const Display _display;
  Console _console;
  LibraryScanner* _scanner = nullptr;
  bool _stopping = false;
  std::size_t _done = 0;  ///< files at the last look at the speed
  double _perSecond = 0;
  std::chrono::steady_clock::time_point _lookedAt;
};

}  // namespace velorin
