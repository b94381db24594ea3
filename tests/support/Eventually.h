// Waiting for what another thread or process does.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace velorin::test {

/// True when the condition came to hold within the time.
inline bool eventually(const std::function<bool()>& condition,
                       std::chrono::milliseconds time = std::chrono::seconds(10)) {
  const auto deadline = std::chrono::steady_clock::now() + time;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace velorin::test
