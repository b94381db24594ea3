// The gate between a render thread and the thread that stops it.
#include "platform/audio/CallbackGate.h"

#include <gtest/gtest.h>

#include <memory>

namespace velorin {
namespace {

using namespace std::chrono_literals;

TEST(CallbackGate, NobodyIsInsideOnceItIsClosed) {
  CallbackGate gate;
  std::atomic<bool> done = false;
  std::atomic<int> entered = 0;
  int* resource = nullptr;  // plain: the gate alone orders the accesses
  std::thread render([&] {
    while (!done) {
      if (!gate.enter()) continue;
      ++*resource;
      ++entered;
      gate.leave();
    }
  });
  for (int round = 0; round < 300; ++round) {
    auto owned = std::make_unique<int>(0);
    resource = owned.get();
    gate.open();
    const int before = entered;
    while (entered == before) std::this_thread::yield();
    ASSERT_TRUE(gate.close(10s));
    resource = nullptr;
  }
  done = true;
  render.join();
}

TEST(CallbackGate, GivesUpOnOneWhoStays) {
  CallbackGate gate;
  gate.open();
  ASSERT_TRUE(gate.enter());
  EXPECT_FALSE(gate.close(5ms));
  gate.leave();
  EXPECT_TRUE(gate.close(5ms));
  EXPECT_FALSE(gate.enter());
  EXPECT_TRUE(gate.close(5ms)) << "a refused entry does not count as inside";
}

}  // namespace
}  // namespace velorin
