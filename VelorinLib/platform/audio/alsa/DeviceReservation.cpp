#include "platform/audio/alsa/DeviceReservation.h"

#include <fmt/format.h>
#include <pthread.h>
#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "foundation/Log.h"
#include "platform/audio/alsa/AlsaCards.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

constexpr const char* kInterface = "org.freedesktop.ReserveDevice1";
constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

/// A holder needs this long to drain and close its streams.
constexpr auto kReleaseTime = 1500ms;
constexpr auto kNameTime = 300ms;
constexpr auto kBusTime = 500ms;

// RequestName: flags and answers of the bus.
constexpr std::uint32_t kAllowReplacement = 1;
constexpr std::uint32_t kReplaceExisting = 2;
constexpr std::uint32_t kDoNotQueue = 4;
constexpr std::uint32_t kPrimaryOwner = 1;
constexpr std::uint32_t kAlreadyOwner = 4;

}  // namespace

struct DeviceReservation::Impl {
  Impl(int card, Options wanted)
      : options(std::move(wanted)),
        name(fmt::format("{}.Audio{}", kInterface, card)),
        path(fmt::format("/org/freedesktop/ReserveDevice1/Audio{}", card)),
        connection(sdbus::createSessionBusConnection()),
        bus(sdbus::createProxy(*connection, kBus, kBusPath)),
        object(sdbus::createObject(*connection, path)) {
    object->registerMethod("RequestRelease")
        .onInterface(kInterface)
        .implementedAs([this](std::int32_t theirs) { return answerRequest(theirs); });
    object->registerProperty("Priority").onInterface(kInterface).withGetter([this] {
      return options.priority;
    });
    object->registerProperty("ApplicationName").onInterface(kInterface).withGetter([] {
      return std::string("Velorin");
    });
    object->registerProperty("ApplicationDeviceName").onInterface(kInterface).withGetter([this] {
      return options.deviceName;
    });
    object->finishRegistration();
    bus->uponSignal("NameLost").onInterface(kBus).call([this](const std::string& which) {
      if (which == name && held.exchange(false) && options.lost) options.lost();
    });
    bus->finishRegistration();
  }

  ~Impl() {
    if (!server.joinable()) return;
    connection->leaveEventLoop();
    server.join();
    try {
      releaseName();
    } catch (const sdbus::Error&) {
      // The bus is gone, and the name with it.
    }
  }

  // Not the library's own thread for this: an error in there, such as the end of the bus, would
  // end the program. Without a bus nobody can ask for the card any more, so it stays ours.
  void serve() {
    server = std::thread([this] {
      try {
        connection->enterEventLoop();
      } catch (const sdbus::Error& error) {
        log::line("ℹ️ Session bus gone: {} is held without agreement ({})", options.deviceName,
                  error.getMessage());
      }
    });
    pthread_setname_np(server.native_handle(), "alsa.reserve");
  }

  bool requestName(std::uint32_t flags) {
    std::uint32_t answer = 0;
    bus->callMethod("RequestName")
        .onInterface(kBus)
        .withTimeout(kBusTime)
        .withArguments(name, flags | kDoNotQueue | kAllowReplacement)
        .storeResultsTo(answer);
    return answer == kPrimaryOwner || answer == kAlreadyOwner;
  }

  void releaseName() {
    std::uint32_t answer = 0;
    bus->callMethod("ReleaseName")
        .onInterface(kBus)
        .withTimeout(kBusTime)
        .withArguments(name)
        .storeResultsTo(answer);
  }

  // True when the holder agrees, or went away meanwhile.
  bool askHolder() {
    bool agreed = false;
    try {
      const auto holder = sdbus::createProxy(*connection, name, path);
      holder->callMethod("RequestRelease")
          .onInterface(kInterface)
          .withTimeout(kReleaseTime)
          .withArguments(options.priority)
          .storeResultsTo(agreed);
    } catch (const sdbus::Error& error) {
      return error.getName() == "org.freedesktop.DBus.Error.NameHasNoOwner" ||
             error.getName() == "org.freedesktop.DBus.Error.ServiceUnknown";
    }
    return agreed;
  }

  std::string holderName() {
    try {
      const auto holder = sdbus::createProxy(*connection, name, path);
      sdbus::Variant value;
      holder->callMethod("Get")
          .onInterface(kProperties)
          .withTimeout(kNameTime)
          .withArguments(kInterface, "ApplicationName")
          .storeResultsTo(value);
      const auto application = value.get<std::string>();
      if (!application.empty()) return application;
    } catch (const sdbus::Error&) {
      // It does not answer; the bus knows its process all the same.
    }
    try {
      std::uint32_t process = 0;
      bus->callMethod("GetConnectionUnixProcessID")
          .onInterface(kBus)
          .withTimeout(kBusTime)
          .withArguments(name)
          .storeResultsTo(process);
      return processDescription(static_cast<pid_t>(process));
    } catch (const sdbus::Error&) {
      return "another program";
    }
  }

  bool answerRequest(std::int32_t theirs) {
    if (theirs <= options.priority || !held.load()) return false;
    if (options.giveUp && !options.giveUp()) return false;
    // The name stays ours until the asker replaces us: given back, the sound server would take it
    // in between. The NameLost that follows is no surprise then.
    held.store(false);
    return true;
  }

  Options options;
  const std::string name;
  const std::string path;
  std::atomic<bool> held{false};
  std::unique_ptr<sdbus::IConnection> connection;
  std::unique_ptr<sdbus::IProxy> bus;
  std::unique_ptr<sdbus::IObject> object;
  std::thread server;
};

DeviceReservation::Outcome DeviceReservation::acquire(
    int card, Options options, std::unique_ptr<DeviceReservation>& reservation,
    AudioStatus& status) {
  status = AudioStatus::success();
  std::unique_ptr<Impl> impl;
  try {
    impl = std::make_unique<Impl>(card, std::move(options));
  } catch (const sdbus::Error&) {
    return Outcome::unavailable;
  }
  try {
    // Before the connection is served by its thread: calls need not take turns with it.
    if (!impl->requestName(0) && !(impl->askHolder() && impl->requestName(kReplaceExisting))) {
      status = AudioStatus::failure(
          -EBUSY, fmt::format("{} uses the device and does not let go", impl->holderName()));
      return Outcome::refused;
    }
  } catch (const sdbus::Error& error) {
    status = AudioStatus::failure(-EBUSY, error.getMessage());
    return Outcome::refused;
  }
  impl->held.store(true);
  impl->serve();
  reservation.reset(new DeviceReservation(std::move(impl)));
  return Outcome::acquired;
}

DeviceReservation::DeviceReservation(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}

DeviceReservation::~DeviceReservation() = default;

bool DeviceReservation::isHeld() const noexcept {
  return _impl->held.load();
}

}  // namespace velorin
