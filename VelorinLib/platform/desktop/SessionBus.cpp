#include "platform/desktop/SessionBus.h"

#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/FileDescriptor.h"
#include "foundation/Log.h"
#include "foundation/Mutex.h"
#include "foundation/ThreadName.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// How long those who leave wait for the bus's thread.
constexpr auto kPatience = 1s;
/// Messages served before the tasks of others get their turn.
constexpr int kMessagesInARow = 64;

std::string addressOfSession() {
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address) {
    return address;
  }
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  return runtime && *runtime ? fmt::format("unix:path={}/bus", runtime) : std::string();
}

/// Why nobody listens at an address of the usual form; nothing where somebody does, or where only
/// an attempt can tell. The library leaks each connection that it cannot open, and a machine
/// without a bus is asked again and again.
std::optional<std::string> whyUnreachable(std::string_view address) {
  constexpr std::string_view kForm = "unix:path=";
  if (!address.starts_with(kForm) || address.find_first_of("%;") != address.npos) return {};
  const std::string path(address.substr(kForm.size(), address.find(',') - kForm.size()));
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  if (path.size() >= sizeof(name.sun_path)) return {};
  std::ranges::copy(path, name.sun_path);
  const FileDescriptor probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (::connect(probe.get(), reinterpret_cast<const sockaddr*>(&name), sizeof(name)) == 0)
    return {};
  return errno == EAGAIN ? std::nullopt : std::optional(std::generic_category().message(errno));
}

}  // namespace

struct SessionBus::Impl {
  explicit Impl(Options wanted) : options(std::move(wanted)), wake(eventfd(0, EFD_CLOEXEC)) {
    if (options.address.empty()) options.address = addressOfSession();
  }

  void post(std::function<void()> task) {
    {
      MutexLock hold(mutex);
      tasks.push_back(std::move(task));
    }
    ring();
  }

  void ring() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(wake.get(), &one, sizeof one);
  }

  bool isStopping() {
    MutexLock hold(mutex);
    return stopping;
  }

  // --- On the bus's thread ---

  void run() {
    nameThisThread("com.velorin.dbus");
    while (!isStopping()) {
      if (connect()) {
        serve();
        hangUp();
      } else {
        waitUntil(Clock::now() + options.retryInterval);
      }
    }
    MutexLock hold(mutex);
    ended = true;
    changed.notifyAll();
  }

  bool connect() {
    if (options.address.empty()) {
      report("nothing names one");
      return false;
    }
    if (const auto why = whyUnreachable(options.address)) {
      report(*why);
      return false;
    }
    try {
      connection = sdbus::createSessionBusConnectionWithAddress(options.address);
    } catch (const sdbus::Error& error) {
      report(error.getMessage());
      return false;
    }
    wasReported = false;
    for (const auto& client : clients) {
      guarded([&] { client->connected(*connection); });
    }
    return true;
  }

  void report(const std::string& why) {
    if (std::exchange(wasReported, true) || isStopping()) return;
    log::line("ℹ️ No session bus, so no media keys and no notifications: {}", why);
  }

  // Until the connection breaks or the end.
  void serve() {
    try {
      while (!isStopping()) {
        runTasks();
        int served = 0;
        while (served < kMessagesInARow && connection->processPendingRequest()) ++served;
        if (served == kMessagesInARow) continue;
        const auto wanted = connection->getEventLoopPollData();
        wait(wanted.fd, wanted.events, wanted.getPollTimeout());
      }
    } catch (const sdbus::Error& error) {
      log::line("⚠️ The session bus is gone, no media keys until it is back: {}",
                error.getMessage());
      wasReported = true;
    }
  }

  void hangUp() {
    for (const auto& client : clients) {
      guarded([&] { client->disconnected(); });
    }
    connection.reset();
  }

  void waitUntil(Clock::time_point due) {
    while (!isStopping()) {
      runTasks();
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
      if (!options.address.empty() && left <= 0ms) return;
      // Without an address there is nothing to look for: tasks alone end the wait.
      wait(-1, 0, options.address.empty() ? -1 : static_cast<int>(left.count()));
    }
  }

  void wait(int bus, short events, int timeout) {
    pollfd watched[]{{.fd = wake.get(), .events = POLLIN, .revents = 0},
                     {.fd = bus, .events = events, .revents = 0}};
    if (::poll(watched, 2, timeout) > 0 && watched[0].revents != 0) {
      std::uint64_t rings = 0;
      [[maybe_unused]] const auto got = ::read(wake.get(), &rings, sizeof rings);
    }
  }

  void runTasks() {
    std::vector<std::function<void()>> due;
    {
      MutexLock hold(mutex);
      due.swap(tasks);
    }
    for (const auto& task : due) guarded(task);
  }

  template <class Task>
  void guarded(const Task& task) {
    try {
      task();
    } catch (const sdbus::Error& error) {
      log::line("⚠️ Session bus: {} ({})", error.getMessage(), error.getName());
    }
  }

  Options options;
  const FileDescriptor wake;
  Mutex mutex;
  ConditionVariable changed;
  std::vector<std::function<void()>> tasks GUARDED_BY(mutex);
  bool stopping GUARDED_BY(mutex) = false;
  bool ended GUARDED_BY(mutex) = false;

  // Of the bus's thread.
  std::vector<std::shared_ptr<Client>> clients;
  std::unique_ptr<sdbus::IConnection> connection;
  bool wasReported = false;

  std::thread thread;  // of whoever made the bus
};

SessionBus::SessionBus(Options options) : _impl(std::make_shared<Impl>(std::move(options))) {
  _impl->thread = std::thread([impl = _impl] { impl->run(); });
}

SessionBus::~SessionBus() {
  bool ended = false;
  {
    MutexLock hold(_impl->mutex);
    _impl->stopping = true;
    _impl->ring();
    const auto deadline = Clock::now() + kPatience;
    while (!_impl->ended && _impl->changed.waitUntil(_impl->mutex, deadline)) {
    }
    ended = _impl->ended;
  }
  // The thread holds what it uses: left behind in a bus that does not answer, it harms nobody.
  ended ? _impl->thread.join() : _impl->thread.detach();
}

void SessionBus::attach(std::shared_ptr<Client> client) {
  _impl->post([impl = _impl.get(), client = std::move(client)] {
    impl->clients.push_back(client);
    if (impl->connection) client->connected(*impl->connection);
  });
}

void SessionBus::detach(const std::shared_ptr<Client>& client) {
  struct Farewell {
    Mutex mutex;
    ConditionVariable changed;
    bool done GUARDED_BY(mutex) = false;
  };
  const auto farewell = std::make_shared<Farewell>();
  _impl->post([impl = _impl.get(), client, farewell] {
    std::erase(impl->clients, client);
    if (impl->connection) impl->guarded([&] { client->leaving(); });
    MutexLock hold(farewell->mutex);
    farewell->done = true;
    farewell->changed.notifyAll();
  });
  MutexLock hold(farewell->mutex);
  const auto deadline = Clock::now() + kPatience;
  while (!farewell->done && farewell->changed.waitUntil(farewell->mutex, deadline)) {
  }
}

void SessionBus::post(std::function<void()> task) {
  _impl->post(std::move(task));
}

}  // namespace velorin
