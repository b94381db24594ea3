// A jump that the listener asked for and the fill thread has yet to do.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "engine/SourceFacts.h"
#include "foundation/Mutex.h"

namespace velorin {

/// Any thread but the render thread, unless a member says otherwise. The newest wish counts.
class PendingSeek {
 public:
  static constexpr std::int64_t kNone = -1;

  struct Wish {
    std::int64_t usec = kNone;  ///< from the track's own start
    SharedFacts jumpTo;         ///< another track of the heard file, or null: the one that plays
    std::uint64_t number = 0;
  };

  /// `pendingSeekUsec`, or kNone. Lock-free.
  std::int64_t usec() const noexcept { return _usec.load(std::memory_order_acquire); }
  bool isPending() const noexcept { return usec() >= 0; }

  void ask(std::int64_t usec, SharedFacts jumpTo = nullptr) EXCLUDES(_mutex) {
    MutexLock hold(_mutex);
    // A seek on the heels of a jump is one in the track that was jumped to.
    if (jumpTo == nullptr && _wish.usec >= 0) jumpTo = std::move(_wish.jumpTo);
    _wish = {usec, std::move(jumpTo), _wish.number + 1};
    _usec.store(usec, std::memory_order_release);
  }
  void cancel() EXCLUDES(_mutex) {
    MutexLock hold(_mutex);
    clear();
  }

  /// Fill thread. The wish stays pending until done() is told of it.
  std::optional<Wish> get() const EXCLUDES(_mutex) {
    MutexLock hold(_mutex);
    if (_wish.usec < 0) return std::nullopt;
    return _wish;
  }
  /// Fill thread. Not so if another came meanwhile.
  void done(const Wish& wish) EXCLUDES(_mutex) {
    MutexLock hold(_mutex);
    if (_wish.number == wish.number) clear();
  }

 private:
  void clear() REQUIRES(_mutex) {
    _wish.usec = kNone;
    _wish.jumpTo.reset();
    _usec.store(kNone, std::memory_order_release);
  }

  mutable Mutex _mutex;
  Wish _wish GUARDED_BY(_mutex);
  std::atomic<std::int64_t> _usec{kNone};
};

}  // namespace velorin
