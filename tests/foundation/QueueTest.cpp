#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <future>
#include <numeric>
#include <stdexcept>

#include "foundation/Log.h"
#include "foundation/OperationQueue.h"
#include "foundation/SerialQueue.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

std::string threadName() {
  std::array<char, 16> name{};
  ::pthread_getname_np(::pthread_self(), name.data(), name.size());
  return name.data();
}

TEST(SerialQueue, RunsOneTaskAtATimeInOrderFromManyThreads) {
  constexpr int kThreads = 4;
  constexpr int kTasks = 500;
  std::vector<std::pair<int, int>> order;  // unguarded: the queue is what keeps it safe
  {
    SerialQueue queue("com.velorin.test.serial");
    std::vector<std::thread> posters;
    for (int t = 0; t < kThreads; ++t) {
      posters.emplace_back([&, t] {
        for (int i = 0; i < kTasks; ++i) queue.async([&order, t, i] { order.emplace_back(t, i); });
      });
    }
    for (auto& poster : posters) poster.join();
  }  // the destructor runs what is queued
  ASSERT_EQ(order.size(), static_cast<std::size_t>(kThreads * kTasks));
  std::array<int, kThreads> next{};
  for (const auto& [thread, index] : order) EXPECT_EQ(index, next[thread]++);
}

TEST(SerialQueue, SyncWaitsNestsAndCarriesExceptions) {
  SerialQueue queue("com.velorin.appdelegate.engine");
  std::string name;
  bool nested = false;
  EXPECT_FALSE(queue.isCurrent());
  queue.sync([&] {
    name = threadName();
    queue.sync([&] { nested = queue.isCurrent(); });
  });
  EXPECT_EQ(name, "engine");
  EXPECT_TRUE(nested);
  EXPECT_THROW(queue.sync([] { throw std::out_of_range("x"); }), std::out_of_range);

  const log::Capture capture;
  queue.async([] { throw std::runtime_error("disk on fire"); });
  int after = 0;
  queue.sync([&] { after = 1; });
  EXPECT_EQ(after, 1) << "a failed task ended the queue";
  EXPECT_TRUE(capture.contains("❌ com.velorin.appdelegate.engine: a task failed: disk on fire"));
}

TEST(SerialQueue, DelayedTasksKeepTheirTimesAndAreDroppedAtTheEnd) {
  std::promise<void> bothRan;
  std::vector<int> order;
  const auto start = std::chrono::steady_clock::now();
  std::chrono::steady_clock::duration waited{};
  bool tooLate = false;
  {
    SerialQueue queue("com.velorin.test.delayed");
    queue.asyncAfter(1h, [&] { tooLate = true; });
    queue.asyncAfter(100ms, [&] {
      order.push_back(2);
      waited = std::chrono::steady_clock::now() - start;
      bothRan.set_value();
    });
    queue.asyncAfter(1ms, [&] { order.push_back(1); });
    bothRan.get_future().wait();
  }
  EXPECT_EQ(order, (std::vector{1, 2}));
  EXPECT_GE(waited, 100ms);
  EXPECT_FALSE(tooLate);
}

TEST(SerialQueue, ATaskMayPostWhileTheQueueEnds) {
  int ran = 0;
  std::promise<void> gate;
  {
    SerialQueue queue("com.velorin.test.ending");
    queue.async([&] {
      gate.get_future().wait();
      ++ran;
      queue.async([&] { ++ran; });
    });
    gate.set_value();
  }
  EXPECT_EQ(ran, 2);
}

TEST(OperationQueue, RunsUpToItsWidthAtATime) {
  for (const std::size_t width : {1U, 3U}) {
    OperationQueue queue("com.velorin.test.width", 1);
    queue.setWidth(width);
    std::atomic<int> running{0};
    std::atomic<int> peak{0};
    std::promise<void> full;
    for (int i = 0; i < 30; ++i) {
      queue.add([&](std::stop_token) {
        const int now = ++running;
        int before = peak.load();
        while (now > before && !peak.compare_exchange_weak(before, now)) {
        }
        // The first `width` operations wait for each other: a narrower queue would never pass.
        if (now == static_cast<int>(width) && before < now) full.set_value();
        while (peak.load() < static_cast<int>(width)) std::this_thread::yield();
        --running;
      });
    }
    EXPECT_EQ(full.get_future().wait_for(30s), std::future_status::ready);
    queue.waitUntilDone();
    EXPECT_EQ(peak.load(), static_cast<int>(width));
    EXPECT_EQ(queue.count(), 0U);
  }
}

TEST(OperationQueue, BarriersSeparateWhatIsBeforeFromWhatIsAfter) {
  OperationQueue queue("com.velorin.test.barrier", 4);
  std::atomic<int> finished{0};
  std::atomic<int> running{0};
  std::vector<int> seen;  // unguarded: only barriers touch it
  for (int round = 1; round <= 20; ++round) {
    for (int i = 0; i < 5; ++i) {
      queue.add([&](std::stop_token) {
        ++running;
        std::this_thread::yield();
        ++finished;
        --running;
      });
    }
    queue.addBarrier([&](std::stop_token) { seen.push_back(running ? -1 : finished.load()); });
  }
  queue.waitUntilDone();
  std::vector<int> expected(20);
  for (int i = 0; i < 20; ++i) expected[i] = (i + 1) * 5;
  EXPECT_EQ(seen, expected);
}

TEST(OperationQueue, SuspendsAndCancels) {
  OperationQueue queue("com.velorin.test.suspend", 2);
  std::atomic<int> ran{0};
  queue.setSuspended(true);
  for (int i = 0; i < 5; ++i) queue.add([&](std::stop_token) { ++ran; });
  EXPECT_EQ(queue.count(), 5U);
  EXPECT_EQ(ran.load(), 0);
  queue.setSuspended(false);
  queue.waitUntilDone();
  EXPECT_EQ(ran.load(), 5);

  // Cancel: what runs sees its token, what waits is dropped, what comes later runs.
  std::promise<void> started;
  queue.setWidth(1);
  queue.add([&](std::stop_token stop) {
    started.set_value();
    while (!stop.stop_requested()) std::this_thread::yield();
    ++ran;
  });
  queue.add([&](std::stop_token) { ran += 100; });
  started.get_future().wait();
  queue.cancelAll();
  queue.add([&](std::stop_token stop) { ran += stop.stop_requested() ? 1000 : 10; });
  queue.waitUntilDone();
  EXPECT_EQ(ran.load(), 16);
}

TEST(OperationQueue, EndsByStoppingWhatRunsAndDroppingTheRest) {
  std::atomic<int> dropped{0};
  std::promise<void> started;
  const log::Capture capture;
  {
    OperationQueue queue("com.velorin.test.end", 1);
    queue.add([](std::stop_token) { throw std::runtime_error("bad file"); });
    queue.add([&](std::stop_token stop) {
      started.set_value();
      while (!stop.stop_requested()) std::this_thread::yield();
    });
    queue.add([&](std::stop_token) { ++dropped; });
    started.get_future().wait();
  }
  EXPECT_EQ(dropped.load(), 0);
  EXPECT_TRUE(capture.contains("bad file"));
}

}  // namespace
}  // namespace velorin
