#include "platform/power/RealtimePriority.h"

#include <fmt/format.h>
#include <sched.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>

namespace velorin {
namespace {

using namespace std::chrono_literals;

constexpr const char* kService = "org.freedesktop.RealtimeKit1";
constexpr const char* kPath = "/org/freedesktop/RealtimeKit1";
constexpr auto kAnswerTime = 250ms;
constexpr int kNice = -11;

pid_t threadID() {
  return static_cast<pid_t>(syscall(SYS_gettid));
}

bool setScheduler(int policy, int priority) {
  sched_param param{};
  param.sched_priority = priority;
  return sched_setscheduler(0, policy | SCHED_RESET_ON_FORK, &param) == 0;
}

bool tryFifo(int priority) {
  if (setScheduler(SCHED_FIFO, priority)) return true;
  rlimit limit{};
  if (getrlimit(RLIMIT_RTPRIO, &limit) != 0 || limit.rlim_max == 0) return false;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_RTPRIO, &limit);
  const auto allowed = std::min<rlim_t>(static_cast<rlim_t>(priority), limit.rlim_max);
  return setScheduler(SCHED_FIFO, static_cast<int>(allowed));
}

// RealtimeKit on a connection of its own: the program's others are served by other threads.
class RealtimeKit {
 public:
  RealtimeKit()
      : _connection(sdbus::createSystemBusConnection()),
        _proxy(sdbus::createProxy(*_connection, kService, kPath)) {}

  void makeRealtime(int wanted) {
    // It refuses processes that could hang the machine: RLIMIT_RTTIME must be within its maximum.
    rlimit limit{};
    getrlimit(RLIMIT_RTTIME, &limit);
    const auto longest = static_cast<rlim_t>(property<std::int64_t>("RTTimeUSecMax"));
    limit.rlim_max = std::min(limit.rlim_max, longest);
    limit.rlim_cur = std::min(limit.rlim_cur, limit.rlim_max);
    setrlimit(RLIMIT_RTTIME, &limit);
    const int priority = std::min(wanted, property<std::int32_t>("MaxRealtimePriority"));
    call("MakeThreadRealtime", static_cast<std::uint32_t>(priority));
  }

  void makeNice() {
    call("MakeThreadHighPriority",
         std::max<std::int32_t>(kNice, property<std::int32_t>("MinNiceLevel")));
  }

 private:
  template <class Value>
  Value property(const char* name) {
    sdbus::Variant value;
    _proxy->callMethod("Get")
        .onInterface("org.freedesktop.DBus.Properties")
        .withTimeout(kAnswerTime)
        .withArguments(kService, name)
        .storeResultsTo(value);
    return value.get<Value>();
  }

  template <class Level>
  void call(const char* method, Level level) {
    _proxy->callMethod(method)
        .onInterface(kService)
        .withTimeout(kAnswerTime)
        .withArguments(static_cast<std::uint64_t>(threadID()), level);
  }

  std::unique_ptr<sdbus::IConnection> _connection;
  std::unique_ptr<sdbus::IProxy> _proxy;
};

bool hasRealtimeClass() {
  const int policy = sched_getscheduler(0) & ~SCHED_RESET_ON_FORK;
  return policy == SCHED_FIFO || policy == SCHED_RR;
}

int niceLevel() {
  return getpriority(PRIO_PROCESS, static_cast<id_t>(threadID()));
}

ThreadPriority readBack(const char* by) {
  const int policy = sched_getscheduler(0) & ~SCHED_RESET_ON_FORK;
  if (policy == SCHED_FIFO || policy == SCHED_RR) {
    sched_param param{};
    sched_getparam(0, &param);
    return {true, fmt::format("SCHED_{} {}{}", policy == SCHED_FIFO ? "FIFO" : "RR",
                              param.sched_priority, by)};
  }
  const int level = niceLevel();
  return {false, level < 0 ? fmt::format("nice {}{}", level, by) : "normal"};
}

}  // namespace

ThreadPriority raiseThreadPriority(int priority) {
  if (tryFifo(priority)) return readBack("");
  constexpr const char* kByKit = " by RealtimeKit";
  std::unique_ptr<RealtimeKit> kit;
  try {
    kit = std::make_unique<RealtimeKit>();
    kit->makeRealtime(priority);
  } catch (const sdbus::Error&) {
    // No bus, no such service, or it refused: the next best thing follows.
  }
  if (hasRealtimeClass()) return readBack(kByKit);
  if (setpriority(PRIO_PROCESS, static_cast<id_t>(threadID()), kNice) == 0) return readBack("");
  try {
    if (kit) kit->makeNice();
  } catch (const sdbus::Error&) {
  }
  return readBack(niceLevel() < 0 ? kByKit : "");
}

void dropThreadPriority() noexcept {
  sched_param param{};
  sched_setscheduler(0, SCHED_OTHER | SCHED_RESET_ON_FORK, &param);
}

}  // namespace velorin
