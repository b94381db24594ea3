// Lets the fill thread change, in one piece, what a render call reads.
//
// A seek drops the ring's content and resets the position. A render call that is half-way
// through at that moment would take the old frames and count them against the new position. So
// the fill thread closes the gate, which waits for a call that is inside to leave (a matter of
// microseconds), makes its change, and opens the gate again. The render thread never waits: a
// call that finds the gate closed renders silence.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

namespace velorin {

class RenderGate {
 public:
  /// Render thread only. False: the gate is closed, touch nothing; leave() is still owed.
  bool enter() noexcept {
    _passes.fetch_add(1, std::memory_order_seq_cst);
    return !_closed.load(std::memory_order_seq_cst);
  }
  void leave() noexcept { _passes.fetch_add(1, std::memory_order_release); }

  /// Holds the gate closed for a scope. One thread at a time, never the render thread.
  class Closed {
   public:
    explicit Closed(RenderGate& gate) noexcept : _gate(gate) {
      _gate._closed.store(true, std::memory_order_seq_cst);
      while (_gate._passes.load(std::memory_order_seq_cst) % 2 != 0) std::this_thread::yield();
    }
    ~Closed() { _gate._closed.store(false, std::memory_order_seq_cst); }
    Closed(const Closed&) = delete;
    Closed& operator=(const Closed&) = delete;

   private:
    RenderGate& _gate;
  };

 private:
  std::atomic<std::uint64_t> _passes{0};  ///< odd while a render call is inside
  std::atomic<bool> _closed{false};
};

}  // namespace velorin
