// Reserving a card on a private bus, against other programs that agree, refuse, or say nothing.
#include "platform/audio/alsa/DeviceReservation.h"

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>

#include "platform/alsa/AlsaTestSystem.h"
#include "platform/audio/alsa/AlsaAudioHardware.h"
#include "support/DBusSession.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using test::AlsaConfiguration;
using test::DBusSession;
using test::eventually;
using Outcome = DeviceReservation::Outcome;

constexpr const char* kInterface = "org.freedesktop.ReserveDevice1";
constexpr const char* kName = "org.freedesktop.ReserveDevice1.Audio3";
constexpr const char* kPath = "/org/freedesktop/ReserveDevice1/Audio3";

// Another program on the bus.
class Peer {
 public:
  enum class Manner { agrees, refuses, silent };

  explicit Peer(Manner manner = Manner::agrees)
      : _connection(sdbus::createSessionBusConnection()),
        _bus(sdbus::createProxy(*_connection, "org.freedesktop.DBus", "/org/freedesktop/DBus")),
        _object(sdbus::createObject(*_connection, kPath)) {
    _object->registerMethod("RequestRelease")
        .onInterface(kInterface)
        .implementedAs([this, manner](std::int32_t priority) {
          asked = priority;
          return manner == Manner::agrees;
        });
    _object->registerProperty("ApplicationName").onInterface(kInterface).withGetter([] {
      return std::string("Tape Deck");
    });
    _object->finishRegistration();
    if (manner != Manner::silent) _connection->enterEventLoopAsync();
  }

  // flags: 1 allow replacement, 2 replace.
  bool own(std::uint32_t flags) {
    std::uint32_t answer = 0;
    _bus->callMethod("RequestName")
        .onInterface("org.freedesktop.DBus")
        .withArguments(kName, flags | 4u)
        .storeResultsTo(answer);
    return answer == 1;
  }
  bool requestRelease(std::int32_t priority) {
    bool agreed = false;
    sdbus::createProxy(*_connection, kName, kPath)
        ->callMethod("RequestRelease")
        .onInterface(kInterface)
        .withTimeout(5s)
        .withArguments(priority)
        .storeResultsTo(agreed);
    return agreed;
  }
  template <class Value>
  Value ask(const char* property) {
    sdbus::Variant value;
    sdbus::createProxy(*_connection, kName, kPath)
        ->callMethod("Get")
        .onInterface("org.freedesktop.DBus.Properties")
        .withTimeout(5s)
        .withArguments(kInterface, property)
        .storeResultsTo(value);
    return value.get<Value>();
  }

  std::atomic<std::int32_t> asked = 0;

 private:
  std::unique_ptr<sdbus::IConnection> _connection;
  std::unique_ptr<sdbus::IProxy> _bus;
  std::unique_ptr<sdbus::IObject> _object;
};

struct Attempt {
  std::atomic<int> givenUp = 0;
  std::atomic<int> taken = 0;
  bool agrees = true;
  AudioStatus status;
  std::unique_ptr<DeviceReservation> reservation;

  Outcome acquire() {
    DeviceReservation::Options options;
    options.deviceName = "Topping D90";
    options.giveUp = [this] {
      ++givenUp;
      return agrees;
    };
    options.lost = [this] { ++taken; };
    return DeviceReservation::acquire(3, std::move(options), reservation, status);
  }
};

TEST(DeviceReservation, AFreeCardIsTakenDescribedAndGivenBack) {
  const DBusSession bus;
  Attempt attempt;
  ASSERT_EQ(attempt.acquire(), Outcome::acquired);
  EXPECT_TRUE(attempt.reservation->isHeld());
  Peer peer;
  EXPECT_FALSE(peer.own(1));
  EXPECT_EQ(peer.ask<std::int32_t>("Priority"), 20);
  EXPECT_EQ(peer.ask<std::string>("ApplicationName"), "Velorin");
  EXPECT_EQ(peer.ask<std::string>("ApplicationDeviceName"), "Topping D90");
  attempt.reservation.reset();
  EXPECT_TRUE(peer.own(1));
  EXPECT_EQ(attempt.givenUp + attempt.taken, 0);
}

TEST(DeviceReservation, AHolderIsAskedAndItsAnswerCounts) {
  const DBusSession bus;
  {
    Peer peer(Peer::Manner::agrees);
    ASSERT_TRUE(peer.own(1));
    Attempt attempt;
    EXPECT_EQ(attempt.acquire(), Outcome::acquired);
    EXPECT_EQ(peer.asked, 20);
  }
  {
    Peer peer(Peer::Manner::refuses);
    ASSERT_TRUE(peer.own(1));
    Attempt attempt;
    EXPECT_EQ(attempt.acquire(), Outcome::refused);
    EXPECT_EQ(attempt.status.code, -EBUSY);
    EXPECT_EQ(attempt.status.text, "Tape Deck uses the device and does not let go");
    EXPECT_EQ(attempt.reservation, nullptr);
    EXPECT_EQ(peer.asked, 20);
  }
  {
    Peer peer(Peer::Manner::agrees);
    ASSERT_TRUE(peer.own(0));  // agrees, but does not allow to be replaced
    Attempt attempt;
    EXPECT_EQ(attempt.acquire(), Outcome::refused);
  }
}

TEST(DeviceReservation, AHolderThatSaysNothingIsNotWaitedForLong) {
  const DBusSession bus;
  Peer peer(Peer::Manner::silent);
  ASSERT_TRUE(peer.own(1));
  Attempt attempt;
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(attempt.acquire(), Outcome::refused);
  EXPECT_LT(std::chrono::steady_clock::now() - before, 2500ms);
  // The bus knows the process where its program does not answer.
  EXPECT_NE(attempt.status.text.find(fmt::format("process {}", getpid())), std::string::npos)
      << attempt.status.text;
}

TEST(DeviceReservation, AHigherPriorityGetsTheCardALowerOneDoesNot) {
  const DBusSession bus;
  Attempt attempt;
  ASSERT_EQ(attempt.acquire(), Outcome::acquired);
  Peer peer;
  for (const std::int32_t lower : {-20, 0, 20}) EXPECT_FALSE(peer.requestRelease(lower)) << lower;
  EXPECT_EQ(attempt.givenUp, 0);
  attempt.agrees = false;
  EXPECT_FALSE(peer.requestRelease(21));
  EXPECT_TRUE(attempt.reservation->isHeld());
  attempt.agrees = true;
  EXPECT_TRUE(peer.requestRelease(INT32_MAX));
  EXPECT_FALSE(attempt.reservation->isHeld());
  EXPECT_FALSE(peer.requestRelease(INT32_MAX)) << "there is nothing left to release";
  EXPECT_TRUE(peer.own(2));
  attempt.reservation.reset();
  EXPECT_EQ(attempt.givenUp, 2);
  EXPECT_EQ(attempt.taken, 0);
  Attempt again;
  EXPECT_EQ(again.acquire(), Outcome::refused) << "our release must not have freed the peer's name";
}

TEST(DeviceReservation, ACardThatIsTakenWithoutAskingIsLost) {
  const DBusSession bus;
  Attempt attempt;
  ASSERT_EQ(attempt.acquire(), Outcome::acquired);
  Peer peer;
  ASSERT_TRUE(peer.own(2));
  EXPECT_TRUE(eventually([&] { return attempt.taken == 1; }));
  EXPECT_FALSE(attempt.reservation->isHeld());
}

TEST(DeviceReservation, WithoutABusThereIsNothingToAgreeOn) {
  DBusSession bus;
  Attempt attempt;
  ASSERT_EQ(attempt.acquire(), Outcome::acquired);
  bus.kill();
  Attempt second;
  EXPECT_EQ(second.acquire(), Outcome::unavailable);
  attempt.reservation.reset();  // on a dead bus
}

// --- The hog of a device, which stands on it ---

struct HoggedCard {
  DBusSession bus;
  AlsaAudioHardware hardware;
  AudioDeviceID device;

  explicit HoggedCard(const char* pcm)
      : hardware({[pcm] {
                    return std::vector<AlsaPcmAddress>{
                        {pcm, "alsa:hw:D90,0", "D90", "", TransportType::usb, 3, 0}};
                  },
                  "/nonexistent/snd", false}),
        device(hardware.deviceForUID("alsa:hw:D90,0")) {}
};

TEST(DeviceHog, GoesWithTheReservationAndNamesWhoRefuses) {
  AlsaConfiguration::instance().addStereo("hog", "S16_LE");
  HoggedCard card("hog");
  EXPECT_EQ(card.hardware.hogOwner(card.device), -1);
  EXPECT_EQ(card.hardware.setHogOwner(card.device, 1).code, -EPERM);
  {
    Peer peer(Peer::Manner::refuses);
    ASSERT_TRUE(peer.own(1));
    const AudioStatus status = card.hardware.setHogOwner(card.device, getpid());
    EXPECT_EQ(status.code, -EBUSY);
    EXPECT_NE(status.text.find("Tape Deck"), std::string::npos) << status.text;
    EXPECT_EQ(card.hardware.hogOwner(card.device), -1);
  }
  EXPECT_TRUE(eventually([&] { return card.hardware.setHogOwner(card.device, getpid()).ok(); }));
  EXPECT_EQ(card.hardware.hogOwner(card.device), getpid());
  Peer peer;
  EXPECT_FALSE(peer.own(1));
  EXPECT_TRUE(card.hardware.setHogOwner(card.device, -1).ok());
  EXPECT_EQ(card.hardware.hogOwner(card.device), -1);
  EXPECT_TRUE(peer.own(1));
}

TEST(DeviceHog, WaitsForAHolderThatIsStillClosingAndGivesUpOnOneThatIsNot) {
  auto& configuration = AlsaConfiguration::instance();
  const auto held = configuration.folder() / "card-held";
  configuration.addStereo("hog_held", "S16_LE", fmt::format("busy \"{}\"", held.string()));
  HoggedCard card("hog_held");
  std::ofstream(held) << "x";
  const AudioStatus status = card.hardware.setHogOwner(card.device, getpid());
  EXPECT_EQ(status.code, -EBUSY);
  EXPECT_EQ(card.hardware.hogOwner(card.device), -1);
  EXPECT_TRUE(Peer().own(1)) << "the reservation must be given back";
  std::thread closing([&] {
    std::this_thread::sleep_for(200ms);  // the time a holder takes to close
    std::filesystem::remove(held);
  });
  EXPECT_TRUE(eventually([&] { return card.hardware.setHogOwner(card.device, getpid()).ok(); }));
  closing.join();
}

TEST(DeviceHog, AHigherPriorityInterruptsWhatPlays) {
  AlsaConfiguration::instance().addStereo("hog_play", "S16_LE", "clock 1");
  HoggedCard card("hog_play");
  ASSERT_TRUE(card.hardware.setHogOwner(card.device, getpid()).ok());
  test::NoiseRenderer renderer(StreamFormat::planarFloat(48'000, 2));
  std::atomic<int> lost = 0;
  AudioStatus status;
  const auto unit = card.hardware.createOutputUnit(status);
  unit->setEventHandler([&](OutputEvent event) { lost += event == OutputEvent::deviceLost; });
  for (const bool isRunning : {true, false}) {
    SCOPED_TRACE(isRunning ? "running" : "paused");
    lost = 0;
    ASSERT_TRUE(card.hardware.setHogOwner(card.device, getpid()).ok());
    ASSERT_TRUE(unit->setDevice(card.device).ok());
    ASSERT_TRUE(unit->setInputFormat(renderer.format).ok());
    ASSERT_TRUE(unit->setRenderCallback(&test::NoiseRenderer::render, &renderer).ok());
    ASSERT_TRUE(unit->initialize().ok());
    ASSERT_TRUE(unit->start().ok());
    if (!isRunning) unit->stop();
    Peer peer;
    EXPECT_TRUE(peer.requestRelease(100));
    const std::uint32_t calls = renderer.calls;
    EXPECT_EQ(card.hardware.hogOwner(card.device), -1);
    EXPECT_TRUE(eventually([&] { return lost == 1; }));
    EXPECT_EQ(unit->start().code, -ENODEV);
    unit->stop();
    EXPECT_EQ(unit->start().code, -ENODEV);
    EXPECT_EQ(renderer.calls, calls);
    unit->uninitialize();
  }
}

}  // namespace
}  // namespace velorin
