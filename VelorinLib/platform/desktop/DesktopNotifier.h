// One notification of the desktop at a time: each takes the place of the one before.
//
// Source: Desktop Notifications Specification 1.2,
// https://specifications.freedesktop.org/notification/.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace velorin {

class SessionBus;

/// Text may hold any bytes and no markup: what a notification server would take for some is
/// escaped.
struct DesktopNotification {
  struct Action {
    std::string key;
    std::string label;
  };
  std::string summary;
  std::string body;             ///< lines; may be empty
  std::string imagePath;        ///< native bytes; left out unless such a file exists
  std::vector<Action> actions;  ///< left out where the server shows none
  std::string category;         ///< "x-vendor.class.name"
};

class DesktopNotifier {
 public:
  /// Main thread, as all that follows. `invoked` is called on the main thread with the key of the
  /// action that was chosen on the latest notification.
  DesktopNotifier(SessionBus& bus, std::function<void(const std::string& key)> invoked);
  /// Takes the notification away.
  ~DesktopNotifier();
  DesktopNotifier(const DesktopNotifier&) = delete;
  DesktopNotifier& operator=(const DesktopNotifier&) = delete;

  /// Returns at once. While the server has not answered yet, only the last one waits. Without a
  /// bus the notification is dropped; without a server as well, which is told once.
  void show(DesktopNotification notification);

 private:
  class Client;
  SessionBus& _bus;
  std::shared_ptr<Client> _client;
};

}  // namespace velorin
