// A notification server on the test's bus, which keeps what it is given.
#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "foundation/MainThread.h"
#include "foundation/Mutex.h"

namespace velorin::test {

class NotificationServer {
 public:
  using Lines = std::vector<std::string>;
  using Hints = std::map<std::string, sdbus::Variant>;
  static constexpr const char* kName = "org.freedesktop.Notifications";

  struct Shown {
    std::uint32_t replaces = 0;
    std::string summary, body;
    Lines actions;
    Hints hints;
  };
  using Reply = sdbus::Result<std::uint32_t>;

  explicit NotificationServer(Lines capabilities)
      : _connection(sdbus::createSessionBusConnection()),
        _object(sdbus::createObject(*_connection, "/org/freedesktop/Notifications")) {
    _object->registerMethod("GetCapabilities").onInterface(kName).implementedAs([=] {
      return capabilities;
    });
    _object->registerMethod("Notify").onInterface(kName).implementedAs(
        [this](Reply&& reply, std::string, std::uint32_t replaces, std::string, std::string summary,
               std::string body, Lines actions, Hints hints, std::int32_t) {
          if (_isSlow) {
            MutexLock hold(_mutex);
            _held.push_back(std::move(reply));
          } else {
            // Not under the lock: the library has its own around this.
            reply.returnResults(replaces != 0 ? replaces : ++_lastId);
          }
          MutexLock hold(_mutex);
          _shown.push_back({replaces, summary, body, actions, hints});
        });
    _object->registerMethod("CloseNotification")
        .onInterface(kName)
        .implementedAs([this](std::uint32_t id) {
          MutexLock hold(_mutex);
          _shown.push_back({id, "closed", {}, {}, {}});
        });
    _object->registerSignal("ActionInvoked")
        .onInterface(kName)
        .withParameters<std::uint32_t, std::string>();
    _object->registerSignal("NotificationClosed")
        .onInterface(kName)
        .withParameters<std::uint32_t, std::uint32_t>();
    _object->finishRegistration();
    _connection->requestName(kName);
    _connection->enterEventLoopAsync();
  }
  ~NotificationServer() { _connection->leaveEventLoop(); }

  std::vector<Shown> shown(std::size_t count) {
    MainThread::instance().runUntil(
        [&] {
          MainThread::instance().postAfter(std::chrono::milliseconds(1), [] {});
          MutexLock hold(_mutex);
          return _shown.size() >= count;
        },
        std::chrono::seconds(10));
    MutexLock hold(_mutex);
    return _shown;
  }

  void setSlow(bool slow) {
    _isSlow = slow;
    std::vector<Reply> held;
    {
      MutexLock hold(_mutex);
      held.swap(_held);
    }
    for (const Reply& reply : held) reply.returnResults(++_lastId);
  }

  template <class... Arguments>
  void emit(const char* signal, Arguments... arguments) {
    _object->emitSignal(signal).onInterface(kName).withArguments(arguments...);
  }

 private:
  Mutex _mutex;
  std::vector<Shown> _shown GUARDED_BY(_mutex);
  std::vector<Reply> _held GUARDED_BY(_mutex);
  std::atomic<std::uint32_t> _lastId{40};
  std::atomic<bool> _isSlow{false};
  std::unique_ptr<sdbus::IConnection> _connection;
  std::unique_ptr<sdbus::IObject> _object;
};

}  // namespace velorin::test
