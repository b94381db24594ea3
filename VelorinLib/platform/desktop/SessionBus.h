// The program's connection to the desktop's message bus, and the thread that serves it.
//
// Media keys, notifications and whatever else talks to the desktop live on this one connection.
// Everything of the bus library happens on its thread: nobody else ever waits for the bus, and
// nobody has to share its objects.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace sdbus {
class IConnection;
}

namespace velorin {

class SessionBus {
 public:
  struct Options {
    /// Of the bus. Empty: $DBUS_SESSION_BUS_ADDRESS, else the socket "bus" in $XDG_RUNTIME_DIR.
    std::string address;
    /// A bus that is absent or went away is looked for this often.
    std::chrono::milliseconds retryInterval = std::chrono::seconds(15);
  };

  /// Returns at once, the bus is called in the background. Where nothing names a bus there is
  /// none for good. Each time a bus cannot be reached or is lost this is told in one line.
  explicit SessionBus(Options options);
  SessionBus() : SessionBus(Options{}) {}
  /// Waits for a bus that is being called, at most a second; what hangs longer is left behind.
  ~SessionBus();
  SessionBus(const SessionBus&) = delete;
  SessionBus& operator=(const SessionBus&) = delete;

  /// Something that lives on the bus while there is one. All calls come on the bus's thread; an
  /// sdbus::Error that leaves one is logged and does no further harm.
  class Client {
   public:
    virtual ~Client() = default;
    /// A connection is there. It stays until disconnected() or leaving().
    virtual void connected(sdbus::IConnection& connection) = 0;
    /// The connection broke: what belongs to it must be given up now.
    virtual void disconnected() = 0;
    /// detach() was called while connected: the last chance to say something, then as above.
    virtual void leaving() { disconnected(); }
  };

  /// Any thread. The client is told of the connection that is there, or of the next one.
  void attach(std::shared_ptr<Client> client);
  /// Any thread but the bus's. Waits at most a second until the client is called no more.
  void detach(const std::shared_ptr<Client>& client);

  /// Any thread: runs the task on the bus's thread, in the order of posting, connected or not.
  void post(std::function<void()> task);

 private:
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

}  // namespace velorin
