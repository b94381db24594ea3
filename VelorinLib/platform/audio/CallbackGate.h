// The door between a render thread and the thread that stops it.
//
// A sound server calls back on a thread of its own, and goes on doing so for a while after it was
// told to stop. Behind this gate that does not matter: once close() returned true, nobody is
// inside and nobody gets in.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

namespace velorin {

class CallbackGate {
 public:
  /// Render thread only. True: the gate is open, and stays watched until leave().
  bool enter() noexcept {
    // Sequentially consistent on both sides: either the render thread sees the closed gate, or
    // the closing thread sees the render thread inside.
    _inside.store(true, std::memory_order_seq_cst);
    if (_open.load(std::memory_order_seq_cst)) return true;
    leave();
    return false;
  }

  /// Render thread only.
  void leave() noexcept { _inside.store(false, std::memory_order_release); }

  /// Any thread but the render thread.
  void open() noexcept { _open.store(true, std::memory_order_seq_cst); }

  /// Any thread but the render thread. False when somebody was still inside at the timeout.
  bool close(std::chrono::milliseconds timeout) {
    _open.store(false, std::memory_order_seq_cst);
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (_inside.load(std::memory_order_seq_cst)) {
      if (std::chrono::steady_clock::now() >= deadline) return false;
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return true;
  }

 private:
  std::atomic<bool> _open = false;
  std::atomic<bool> _inside = false;
};

}  // namespace velorin
