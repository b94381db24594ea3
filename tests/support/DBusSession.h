// A private message bus for a test.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace velorin::test {

/// Starts a dbus-daemon of its own and points DBUS_SESSION_BUS_ADDRESS or DBUS_SYSTEM_BUS_ADDRESS
/// at it; ends it and puts the variable back when destroyed.
class DBusSession {
 public:
  enum class Bus { session, system };

  /// Throws std::runtime_error where no dbus-daemon can be started. `listenAt`: its address, for
  /// a bus that comes back where another one was.
  explicit DBusSession(Bus bus = Bus::session, const std::string& listenAt = "unix:tmpdir=/tmp");
  ~DBusSession();
  DBusSession(const DBusSession&) = delete;
  DBusSession& operator=(const DBusSession&) = delete;

  const std::string& address() const noexcept { return _address; }

  /// Ends the daemon now, as a crash would.
  void kill();

  /// Starts a program on the bus; it is ended with the bus. The process's id.
  pid_t spawn(const std::vector<std::string>& command);

  /// True once the name has an owner, within 10 s.
  bool waitForName(const std::string& name) const;

 private:
  std::string _variable;
  std::string _before;
  bool _hadBefore = false;
  std::string _address;
  pid_t _daemon = -1;
  std::vector<pid_t> _children;
};

}  // namespace velorin::test
