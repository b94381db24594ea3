#include "foundation/EventBus.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "foundation/Log.h"
#include "foundation/MainThread.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

struct Number {
  int value = 0;
};
struct Other {};

class EventBusTest : public testing::Test {
 protected:
  static void drainMain() { _main.runReady(); }
  void onThread(const std::function<void()>& work) { std::thread(work).join(); }

  static inline MainThread& _main = MainThread::instance();
  EventBus _bus;
  std::vector<int> _got;

  EventBus::Subscription keep(Delivery delivery) {
    return _bus.subscribe<Number>(delivery, [&](const Number& n) { _got.push_back(n.value); });
  }
};

TEST_F(EventBusTest, DeliversWhereAskedInOrderAndByType) {
  std::vector<std::string> order;
  std::thread::id calledOn;
  const auto first = _bus.subscribe<Number>(Delivery::postersThread, [&](const Number&) {
    order.push_back("poster");
    calledOn = std::this_thread::get_id();
  });
  const auto second = _bus.subscribe<Number>(Delivery::mainThread, [&](const Number& number) {
    order.push_back("main " + std::to_string(number.value));
    EXPECT_TRUE(_main.isCurrent());
  });
  const auto other = _bus.subscribe<Other>(Delivery::postersThread,
                                           [&](const Other&) { order.push_back("other"); });
  onThread([&] {
    _bus.post(Number{1});
    EXPECT_EQ(calledOn, std::this_thread::get_id());
    _bus.post(Number{2});
  });
  drainMain();
  _bus.post(Number{3});  // already on the main thread: in place
  EXPECT_EQ(order,
            (std::vector<std::string>{"poster", "poster", "main 1", "main 2", "poster", "main 3"}));
}

TEST_F(EventBusTest, PostOnMainCallsEveryHandlerThere) {
  bool onMain = false;
  const auto subscription = _bus.subscribe<Number>(
      Delivery::postersThread, [&](const Number&) { onMain = _main.isCurrent(); });
  onThread([&] { _bus.postOnMain(Number{1}); });
  EXPECT_FALSE(onMain);
  drainMain();
  EXPECT_TRUE(onMain);
}

TEST_F(EventBusTest, UnsubscribingDropsQueuedCalls) {
  auto subscription = keep(Delivery::mainThread);
  onThread([&] { _bus.post(Number{1}); });
  subscription.reset();
  drainMain();
  _bus.post(Number{2});
  EXPECT_TRUE(_got.empty());
}

TEST_F(EventBusTest, HandlersMayPostSubscribeAndUnsubscribe) {
  EventBus::Subscription self;
  EventBus::Subscription late;
  EventBus::Subscription victim;
  self = _bus.subscribe<Number>(Delivery::postersThread, [&](const Number& number) {
    _got.push_back(number.value);
    const int value = number.value;  // `number` and the handler outlive the reset
    self.reset();
    victim.reset();
    late = _bus.subscribe<Number>(Delivery::postersThread,
                                  [&](const Number& n) { _got.push_back(n.value * 10); });
    _bus.post(Number{value + 1});
  });
  victim =
      _bus.subscribe<Number>(Delivery::postersThread, [&](const Number&) { _got.push_back(-1); });
  _bus.post(Number{1});
  EXPECT_EQ(_got, (std::vector{1, 20}));
}

TEST_F(EventBusTest, AThrowingHandlerKeepsNobodyFromTheEvent) {
  const log::Capture capture;
  const auto bad = _bus.subscribe<Number>(
      Delivery::postersThread, [](const Number&) { throw std::runtime_error("no model"); });
  const auto good = keep(Delivery::postersThread);
  _bus.post(Number{7});
  EXPECT_EQ(_got, std::vector{7});
  EXPECT_TRUE(capture.contains("no model"));
}

TEST_F(EventBusTest, TheBusMayDieFirst) {
  auto bus = std::make_unique<EventBus>();
  auto subscription = bus->subscribe<Number>(
      Delivery::mainThread, [&](const Number& number) { _got.push_back(number.value); });
  onThread([&] {
    bus->post(Number{1});
    bus->postOnMain(Number{2});
  });
  bus.reset();
  drainMain();
  EXPECT_TRUE(_got.empty());
  subscription.reset();
}

// Meant for the thread sanitizer: posting, subscribing and leaving at once.
TEST_F(EventBusTest, ThreadsComeAndGo) {
  std::atomic<int> steady{0};
  const auto observer =
      _bus.subscribe<Number>(Delivery::postersThread, [&](const Number& n) { steady += n.value; });
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        auto subscription = _bus.subscribe<Other>(Delivery::mainThread, [](const Other&) {});
        const auto own = _bus.subscribe<Number>(Delivery::mainThread, [](const Number&) {});
        _bus.post(Number{1});
        _bus.post(Other{});
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(steady.load(), 800);
  drainMain();
}

}  // namespace
}  // namespace velorin
