// Tells when the system is short of memory.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "foundation/FileDescriptor.h"

namespace velorin {

/// Watches the kernel's pressure stall information: a trigger on a PSI file makes it readable with
/// priority (POLLPRI) once tasks have waited for memory for a tenth of two seconds, at most once in
/// these. See Documentation/accounting/psi.rst of the kernel.
class MemoryPressure {
 public:
  /// On the watch's own thread; must not destroy the watch.
  using Handler = std::function<void()>;

  /// Those of the whole machine, and of this process's control group, which may be all that a
  /// process without privileges can watch.
  static std::vector<std::string> systemSources();

  /// Watches the first of the PSI files that takes a trigger. Where none does (no PSI in the
  /// kernel, no permission) one line in the log says so, and null is returned.
  static std::unique_ptr<MemoryPressure> watch(const std::vector<std::string>& sources,
                                               Handler handler);

  /// Watches what has a trigger already.
  MemoryPressure(FileDescriptor source, Handler handler);

  /// Waits for a handler that is running.
  ~MemoryPressure();
  MemoryPressure(const MemoryPressure&) = delete;
  MemoryPressure& operator=(const MemoryPressure&) = delete;

 private:
  void run() const;

  const FileDescriptor _source;
  const FileDescriptor _stop;
  const Handler _handler;
  std::thread _thread;  // last: it uses the rest
};

}  // namespace velorin
