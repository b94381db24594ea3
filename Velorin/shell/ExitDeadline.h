// The process ends in time, whatever does not answer.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>

namespace velorin {

/// From start() on the process has so long to end by itself. Past that it is ended with exit code
/// 1 and one line that says what was being waited for, even where the main thread hangs: the
/// system then frees the device, and the database is whole by its journal. Main thread.
class ExitDeadline {
 public:
  ExitDeadline();
  /// The end came in time.
  ~ExitDeadline();
  ExitDeadline(const ExitDeadline&) = delete;
  ExitDeadline& operator=(const ExitDeadline&) = delete;

  void start(std::chrono::milliseconds grace);
  /// What the next step waits for, for the message: "the audio device does not answer". The text
  /// lives as long as the program.
  void setStep(const char* waitingFor) noexcept;

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
