#include "foundation/MainThread.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <boost/asio/posix/stream_descriptor.hpp>
#include <semaphore>
#include <stdexcept>

#include "foundation/Log.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

// Before any test starts a thread: the first call tells which thread is the main one.
MainThread& mainThread = MainThread::instance();

TEST(MainThread, RunsTasksInOrderUntilStopped) {
  std::vector<int> order;
  bool onMain = false;
  std::thread poster([&] {
    EXPECT_FALSE(mainThread.isCurrent());
    for (int i = 0; i < 100; ++i) mainThread.post([&order, i] { order.push_back(i); });
    mainThread.post([&] { onMain = mainThread.isCurrent(); });
    mainThread.post([] { mainThread.stop(); });
    mainThread.post([&order] { order.push_back(-1); });  // behind the stop: next time
  });
  mainThread.run();
  poster.join();
  EXPECT_TRUE(onMain);
  ASSERT_EQ(order.size(), 100U);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(order[i], i);

  EXPECT_TRUE(mainThread.runUntil([&] { return order.size() == 101; }, 10s));
  mainThread.stop();  // kept for the next run
  mainThread.run();
}

TEST(MainThread, RunReadyReturnsEvenWhenTasksPostThemselves) {
  int ran = 0;
  std::function<void()> again = [&] {
    if (++ran < 5) mainThread.post(again);
  };
  mainThread.post(again);
  mainThread.post([] { throw std::runtime_error("odd file"); });
  const log::Capture capture;
  EXPECT_EQ(mainThread.runReady(), 2U);
  EXPECT_EQ(ran, 1);
  EXPECT_TRUE(capture.contains("odd file"));
  EXPECT_TRUE(mainThread.runUntil([&] { return ran == 5; }, 10s));
  EXPECT_EQ(mainThread.runReady(), 0U);
}

TEST(MainThread, DelayedTasksComeByTimeThenByOrder) {
  const auto start = MainThread::Clock::now();
  std::vector<int> order;
  mainThread.postAt(start + 10ms, [&] { order.push_back(2); });
  mainThread.postAt(start + 10ms, [&] { order.push_back(3); });
  mainThread.postAt(start + 5ms, [&] { order.push_back(1); });
  EXPECT_TRUE(mainThread.runUntil([&] { return order.size() == 3; }, 10s));
  EXPECT_GE(MainThread::Clock::now() - start, 10ms);
  EXPECT_EQ(order, (std::vector{1, 2, 3}));
}

TEST(MainThread, WakeHookCallsForTasksAndForWhatFallsDue) {
  std::counting_semaphore<> wakes(0);
  const auto isWoken = [&] {
    const bool came = wakes.try_acquire_for(10s);
    while (wakes.try_acquire()) continue;
    return came;
  };
  mainThread.setWakeHook([&] { wakes.release(); });
  int ran = 0;
  std::thread([&] { mainThread.post([&] { ++ran; }); }).join();
  ASSERT_TRUE(isWoken());
  EXPECT_EQ(mainThread.runReady(), 1U);

  mainThread.postAfter(15ms, [&] { ++ran; });
  ASSERT_TRUE(isWoken()) << "nobody told the toolkit that a timer fell due";
  mainThread.runReady();
  EXPECT_EQ(ran, 2);
  mainThread.setWakeHook({});
}

TEST(MainThread, ServesDescriptorsBesideTasks) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  boost::asio::posix::stream_descriptor reader(mainThread.context(), ends[0]);
  bool readable = false;
  reader.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                    [&](const boost::system::error_code& error) { readable = !error; });
  std::thread writer([&] { EXPECT_EQ(::write(ends[1], "x", 1), 1); });
  EXPECT_TRUE(mainThread.runUntil([&] { return readable; }, 10s));
  writer.join();
  ::close(ends[1]);
}

// Spins so long and says when that ended.
MainThread::Clock::time_point busyFor(std::chrono::milliseconds time) {
  const auto end = MainThread::Clock::now() + time;
  while (MainThread::Clock::now() < end) continue;
  return end;
}

TEST(RepeatingTimer, TicksStopsAndDoesNotPileUp) {
  int ticks = 0;
  RepeatingTimer timer;
  timer.start(5ms, [&] { ++ticks; });
  EXPECT_TRUE(mainThread.runUntil([&] { return ticks == 3; }, 10s));

  // A loop that was busy for ten intervals gets one tick, and then only those of time passing.
  timer.start(20ms, [&] { ++ticks; });
  const auto busyUntil = busyFor(200ms);
  ticks = 0;
  for (int i = 0; i < 10; ++i) mainThread.runReady();
  const auto since = MainThread::Clock::now() - busyUntil;
  EXPECT_GE(ticks, 1);
  EXPECT_LE(ticks, 2 + since / 20ms);

  // A tick may stop its own timer, and one that was due is dropped.
  timer.start(1ms, [&] {
    ticks = 100;
    timer.stop();
  });
  EXPECT_TRUE(mainThread.runUntil([&] { return !timer.isRunning(); }, 10s));
  EXPECT_EQ(ticks, 100);
  timer.start(1ms, [&] { ticks = -1; });
  busyFor(3ms);
  timer.stop();
  mainThread.runReady();
  EXPECT_EQ(ticks, 100);

  // A new start ends the rhythm of the one before.
  timer.start(1ms, [&] { ticks = -2; });
  timer.start(1h, [&] { ticks = -3; });
  busyFor(3ms);
  mainThread.runReady();
  EXPECT_EQ(ticks, 100);

  // A tick may destroy its own timer.
  auto owned = std::make_unique<RepeatingTimer>();
  owned->start(1ms, [&] { owned.reset(); });
  EXPECT_TRUE(mainThread.runUntil([&] { return owned == nullptr; }, 10s));
}

}  // namespace
}  // namespace velorin
