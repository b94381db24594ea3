// Raising a thread by each of the ways there are, judged by what the kernel says of it afterwards.
#include "platform/power/RealtimePriority.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sched.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "support/DBusSession.h"

namespace velorin {
namespace {

using test::DBusSession;

// RealtimeKit as far as the code knows it; what it grants it really sets.
class FakeRealtimeKit {
 public:
  explicit FakeRealtimeKit(bool grantsRealtime)
      : _connection(sdbus::createSystemBusConnection("org.freedesktop.RealtimeKit1")),
        _object(sdbus::createObject(*_connection, "/org/freedesktop/RealtimeKit1")) {
    constexpr const char* kName = "org.freedesktop.RealtimeKit1";
    _object->registerProperty("RTTimeUSecMax").onInterface(kName).withGetter([] {
      return std::int64_t{200'000};
    });
    _object->registerProperty("MaxRealtimePriority").onInterface(kName).withGetter([] {
      return std::int32_t{15};
    });
    _object->registerProperty("MinNiceLevel").onInterface(kName).withGetter([] {
      return std::int32_t{-15};
    });
    _object->registerMethod("MakeThreadRealtime")
        .onInterface(kName)
        .implementedAs([grantsRealtime](std::uint64_t thread, std::uint32_t priority) {
          rlimit limit{};
          getrlimit(RLIMIT_RTTIME, &limit);
          if (!grantsRealtime || limit.rlim_max > 200'000) {
            throw sdbus::Error("org.freedesktop.DBus.Error.AccessDenied", "no");
          }
          sched_param param{};
          param.sched_priority = static_cast<int>(priority);
          sched_setscheduler(static_cast<pid_t>(thread), SCHED_RR | SCHED_RESET_ON_FORK, &param);
        });
    _object->registerMethod("MakeThreadHighPriority")
        .onInterface(kName)
        .implementedAs([](std::uint64_t thread, std::int32_t level) {
          setpriority(PRIO_PROCESS, static_cast<id_t>(thread), level);
        });
    _object->finishRegistration();
    _connection->enterEventLoopAsync();
  }

 private:
  std::unique_ptr<sdbus::IConnection> _connection;
  std::unique_ptr<sdbus::IObject> _object;
};

void dropSchedulingPrivilege() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2] = {};
  ASSERT_EQ(syscall(SYS_capget, &header, data), 0);
  data[0].effective &= ~(1u << CAP_SYS_NICE);
  data[0].permitted &= ~(1u << CAP_SYS_NICE);
  ASSERT_EQ(syscall(SYS_capset, &header, data), 0);
}

ThreadPriority raiseOnThread(bool isPrivileged, const std::function<void()>& then = {}) {
  ThreadPriority raised;
  std::thread([&] {
    if (!isPrivileged) dropSchedulingPrivilege();
    raised = raiseThreadPriority();
    if (then) then();
  }).join();
  return raised;
}

bool mayRaise() {
  bool may = false;
  std::thread([&] {
    sched_param param{};
    param.sched_priority = kAudioThreadPriority;
    may = sched_setscheduler(0, SCHED_FIFO, &param) == 0;
  }).join();
  return may;
}

// Downwards always works; upwards needs yet another privilege.
bool limitPriority(rlim_t most) {
  const rlimit limit{most, most};
  return setrlimit(RLIMIT_RTPRIO, &limit) == 0;
}

class RealtimePriority : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!mayRaise()) GTEST_SKIP() << "needs the privilege to set real-time classes";
  }
};

// First: a hard limit does not come back up.
TEST_F(RealtimePriority, TheLimitOfTheProcessIsUsedUp) {
  if (!limitPriority(20)) GTEST_SKIP() << "the limit of this machine is lower";
  const ThreadPriority raised = raiseOnThread(false);
  EXPECT_TRUE(raised.isRealtime);
  EXPECT_EQ(raised.scheduling, "SCHED_FIFO 20");
}

TEST_F(RealtimePriority, APrivilegedThreadGetsWhatItAsksForAndKeepsItToItself) {
  const ThreadPriority raised = raiseOnThread(true, [] {
    std::thread([] { EXPECT_EQ(sched_getscheduler(0), SCHED_OTHER); }).join();
    dropThreadPriority();
    EXPECT_EQ(sched_getscheduler(0) & ~SCHED_RESET_ON_FORK, SCHED_OTHER);
  });
  EXPECT_TRUE(raised.isRealtime);
  EXPECT_EQ(raised.scheduling, "SCHED_FIFO 60");
}

TEST_F(RealtimePriority, RealtimeKitIsAskedWhereTheLimitIsZero) {
  ASSERT_TRUE(limitPriority(0));
  const DBusSession bus(DBusSession::Bus::system);
  const FakeRealtimeKit kit(true);
  const ThreadPriority raised = raiseOnThread(false);
  EXPECT_TRUE(raised.isRealtime);
  EXPECT_EQ(raised.scheduling, "SCHED_RR 15 by RealtimeKit");
}

TEST_F(RealtimePriority, ANiceLevelIsBetterThanNothing) {
  ASSERT_TRUE(limitPriority(0));
  const DBusSession bus(DBusSession::Bus::system);
  const FakeRealtimeKit kit(false);
  const ThreadPriority raised = raiseOnThread(false);
  EXPECT_FALSE(raised.isRealtime);
  EXPECT_EQ(raised.scheduling, "nice -11 by RealtimeKit");
}

TEST_F(RealtimePriority, WithoutHelpTheThreadStaysAsItIs) {
  ASSERT_TRUE(limitPriority(0));
  DBusSession bus(DBusSession::Bus::system);
  EXPECT_EQ(raiseOnThread(false).scheduling, "normal");  // no such service
  bus.kill();
  const ThreadPriority raised = raiseOnThread(false);
  EXPECT_FALSE(raised.isRealtime);
  EXPECT_EQ(raised.scheduling, "normal");
}

}  // namespace
}  // namespace velorin
