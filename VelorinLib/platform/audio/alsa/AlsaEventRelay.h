// Carries a stream's events from its render thread to the unit's handler.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>

#include "platform/audio/OutputUnit.h"

namespace velorin {

/// raise() is wait-free and meant for the render thread; the handler runs on a thread of the
/// relay. Events of one kind that come faster than the handler takes them are told once;
/// deviceLost is told once at all.
class AlsaEventRelay {
 public:
  explicit AlsaEventRelay(std::function<void(OutputEvent)> handler);
  /// Tells what was raised, then ends the thread.
  ~AlsaEventRelay();
  AlsaEventRelay(const AlsaEventRelay&) = delete;
  AlsaEventRelay& operator=(const AlsaEventRelay&) = delete;

  void raise(OutputEvent event) noexcept;

 private:
  void run();
  void wake() noexcept;

  std::function<void(OutputEvent)> _handler;
  std::atomic<std::uint32_t> _raised{0};  ///< one bit per event
  std::atomic<bool> _ending{false};
  int _wake;  ///< eventfd
  std::thread _thread;
};

}  // namespace velorin
