// Makes the rules of foundation/Realtime.h hold: a program that has RealtimeGuard.cpp among its
// sources aborts when code inside a realtime::Scope does what is forbidden there.
//
// The file replaces the C library's allocation, locking and blocking calls for the whole process,
// shared libraries included, by versions that pass the call on outside of a scope. Inside they
// write one line, "realtime: <call> on the render thread", to stderr and abort. Trying a lock
// (pthread_mutex_trylock), the clock and memory copies stay allowed.
//
// Not covered: calls that the C library makes to itself (the write behind a buffered stream's
// flush, for one, but its allocation and the entry points of stdio are), and raw system calls in
// assembler. Not for sanitizer builds, which replace the same functions.
#pragma once

namespace velorin::test {

/// True when the guard is linked and this process's calls go through it: it has seen the
/// allocations that every program makes before main().
bool realtimeGuardIsActive() noexcept;

}  // namespace velorin::test
