// How far a streaming scan is: what the walks found, and what the workers are done with.
#pragma once

#include <atomic>
#include <cstddef>

namespace velorin {

/// Any number of threads.
class StreamingProgress {
 public:
  /// Returns the count so far, as addProcessed() does.
  std::size_t addDiscovered() noexcept { return ++_discovered; }
  std::size_t addProcessed(std::size_t count = 1) noexcept { return _processed += count; }
  /// From now on `discovered` is the total.
  void setEnumDone() noexcept { _enumDone = true; }

  std::size_t discovered() const noexcept { return _discovered; }
  std::size_t processed() const noexcept { return _processed; }
  bool isEnumDone() const noexcept { return _enumDone; }

 private:
  std::atomic<std::size_t> _discovered{0};
  std::atomic<std::size_t> _processed{0};
  std::atomic<bool> _enumDone{false};
};

}  // namespace velorin
