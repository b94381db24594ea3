// The mark of the render thread, and the rules that bind code under it.
//
// Code that runs inside a RealtimeScope
//   - may: copy memory, do arithmetic, read and write atomics and the clock,
//     and try a lock without waiting for it;
//   - must not: allocate or free, take a lock, wait, log, throw, open, read or write a file,
//     or make any other system call that can block.
// The test build replaces allocation, locking and the blocking calls by versions that abort
// when realtime::active() is true (tests/support/RealtimeGuard.cpp).
#pragma once

namespace velorin::realtime {

namespace detail {
inline thread_local int depth = 0;
}

/// True on a thread that is inside a RealtimeScope.
inline bool active() noexcept {
  return detail::depth > 0;
}

/// Marks the calling thread as rendering for the length of a scope. Nests.
class Scope {
 public:
  Scope() noexcept { ++detail::depth; }
  ~Scope() { --detail::depth; }
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;
};

}  // namespace velorin::realtime
