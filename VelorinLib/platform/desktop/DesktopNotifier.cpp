#include "platform/desktop/DesktopNotifier.h"

#include <sdbus-c++/sdbus-c++.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "platform/desktop/DesktopIdentity.h"
#include "platform/desktop/FileUri.h"
#include "platform/desktop/MprisMetadata.h"
#include "platform/desktop/SessionBus.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

constexpr const char* kServer = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kInterface = "org.freedesktop.Notifications";
constexpr const char* kOwnerChanges =
    "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
    "member='NameOwnerChanged',arg0='org.freedesktop.Notifications'";
constexpr auto kAnswerTime = 5s;
constexpr std::int32_t kServersChoice = -1;  ///< how long it is shown
constexpr std::uint8_t kUrgencyLow = 0;

std::string escapeMarkup(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

bool isFile(const std::string& path) {
  struct stat about {};
  return !path.empty() && ::stat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode);
}

}  // namespace

// On the bus's thread, but for silence().
class DesktopNotifier::Client : public SessionBus::Client {
 public:
  using Invoked = std::function<void(const std::string&)>;

  explicit Client(Invoked invoked)
      : _invoked(std::make_shared<const Invoked>(std::move(invoked))), _weakInvoked(_invoked) {}

  // Main thread: from now on no action is told.
  void silence() { _invoked.reset(); }

  void connected(sdbus::IConnection& connection) override {
    _server = sdbus::createProxy(connection, kServer, kPath);
    _server->uponSignal("ActionInvoked")
        .onInterface(kInterface)
        .call([this](std::uint32_t id, const std::string& key) { invoke(id, key); });
    _server->uponSignal("NotificationClosed")
        .onInterface(kInterface)
        .call([this](std::uint32_t id, std::uint32_t) {
          if (id == _shown) _shown = 0;
        });
    _server->finishRegistration();
    _ownerChanges = connection.addMatch(kOwnerChanges, [this](sdbus::Message&) { forgetServer(); });
  }

  void disconnected() override {
    _server.reset();
    _ownerChanges.reset();
    _isAsking = false;
    forgetServer();
  }

  void leaving() override {
    if (_shown != 0) {
      _server->callMethod("CloseNotification")
          .onInterface(kInterface)
          .withArguments(_shown)
          .dontExpectReply();
    }
    disconnected();
  }

  void show(DesktopNotification notification) {
    if (!_server) return;
    _waiting = std::move(notification);
    proceed();
  }

 private:
  // One question at a time: what is replaced must have its id first.
  void proceed() {
    if (_isAsking || !_waiting) return;
    _isAsking = true;
    const auto notification = std::exchange(_waiting, std::nullopt);
    if (_capabilities) {
      notify(*notification);
    } else {
      askCapabilities(*notification);
    }
  }

  void askCapabilities(const DesktopNotification& notification) {
    _server->callMethodAsync("GetCapabilities")
        .onInterface(kInterface)
        .withTimeout(kAnswerTime)
        .uponReplyInvoke([this, notification](const sdbus::Error* error,
                                              const std::vector<std::string>& capabilities) {
          if (error) return fail(*error);
          _capabilities = capabilities;
          // Perhaps another came meanwhile.
          notify(std::exchange(_waiting, std::nullopt).value_or(notification));
        });
  }

  void notify(const DesktopNotification& notification) {
    std::vector<std::string> actions;
    if (can("actions")) {
      for (const auto& action : notification.actions) {
        actions.insert(actions.end(), {action.key, action.label});
      }
    }
    std::string body;
    if (can("body")) body = busText(notification.body);
    if (can("body-markup")) body = escapeMarkup(body);
    std::map<std::string, sdbus::Variant> hints{
        {"desktop-entry", sdbus::Variant(std::string(kDesktopEntry))},
        {"urgency", sdbus::Variant(kUrgencyLow)},
    };
    if (!notification.category.empty()) {
      hints["category"] = sdbus::Variant(busText(notification.category));
    }
    if (isFile(notification.imagePath)) {
      hints["image-path"] = sdbus::Variant(fileUri(notification.imagePath));
    }
    _server->callMethodAsync("Notify")
        .onInterface(kInterface)
        .withTimeout(kAnswerTime)
        .withArguments(std::string(kApplicationName), _shown, std::string(kDesktopEntry),
                       busText(notification.summary), body, actions, hints, kServersChoice)
        .uponReplyInvoke([this](const sdbus::Error* error, std::uint32_t id) {
          if (error) return fail(*error);
          _isAsking = false;
          _wasReported = false;
          _shown = id;
          proceed();
        });
  }

  bool can(const char* capability) const {
    return std::ranges::find(*_capabilities, capability) != _capabilities->end();
  }

  // What failed is dropped; what came meanwhile has its own try.
  void fail(const sdbus::Error& error) {
    _isAsking = false;
    if (!std::exchange(_wasReported, true)) {
      log::line("ℹ️ No desktop notifications: {}", error.getMessage());
    }
    proceed();
  }

  // Another server knows other things, and nothing of what the last one showed.
  void forgetServer() {
    _capabilities.reset();
    _shown = 0;
  }

  void invoke(std::uint32_t id, const std::string& key) {
    if (id == 0 || id != _shown) return;
    MainThread::instance().post([weak = _weakInvoked, key] {
      if (const auto invoked = weak.lock(); invoked && *invoked) (*invoked)(key);
    });
  }

  std::shared_ptr<const Invoked> _invoked;  // main thread
  const std::weak_ptr<const Invoked> _weakInvoked;

  std::optional<std::vector<std::string>> _capabilities;
  std::optional<DesktopNotification> _waiting;
  bool _isAsking = false;
  bool _wasReported = false;
  std::uint32_t _shown = 0;  ///< id of what is on the screen; 0 for nothing
  sdbus::Slot _ownerChanges;
  std::unique_ptr<sdbus::IProxy> _server;  ///< its callbacks use the rest
};

DesktopNotifier::DesktopNotifier(SessionBus& bus, std::function<void(const std::string&)> invoked)
    : _bus(bus), _client(std::make_shared<Client>(std::move(invoked))) {
  _bus.attach(_client);
}

DesktopNotifier::~DesktopNotifier() {
  _client->silence();
  _bus.detach(_client);
}

void DesktopNotifier::show(DesktopNotification notification) {
  _bus.post(
      [client = _client, notification = std::move(notification)] { client->show(notification); });
}

}  // namespace velorin
