// A sound server and ALSA as one, played by two sets of scripted devices.
#include "platform/audio/CombinedAudioHardware.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <thread>

#include "foundation/SerialQueue.h"
#include "platform/audio/virtual/VirtualAudioHardware.h"
#include "support/Eventually.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

// Two machines' worth of devices: "dac" of the server sits on "alsa:hw:1,0"; "hdmi" is ALSA's
// alone, "network" the server's alone.
struct Machine {
  VirtualAudioHardware* server = nullptr;
  VirtualAudioHardware* alsa = nullptr;
  std::unique_ptr<CombinedAudioHardware> combined;
  AudioDeviceID serverDac, alsaDac;
  SerialQueue queue{"test"};
  std::atomic<int> told = 0;
  AudioHardware::Listener listener;

  Machine() {
    auto serverSide = std::make_unique<VirtualAudioHardware>();
    auto alsaSide = std::make_unique<VirtualAudioHardware>();
    server = serverSide.get();
    alsa = alsaSide.get();
    serverDac = server->addDevice(dac());
    server->addDevice({.uid = "network", .name = "Network"});
    alsaDac = alsa->addDevice({.uid = "alsa:hw:1,0",
                               .name = "DAC hw",
                               .rates = {{192'000, 192'000}},
                               .nominalRate = 192'000});
    alsa->addDevice({.uid = "alsa:hw:0,3", .name = "HDMI hw"});
    combined = std::make_unique<CombinedAudioHardware>(
        std::move(serverSide), std::move(alsaSide), [this](AudioDeviceID id) {
          return std::string(server->deviceUID(id) == "dac" ? "alsa:hw:1,0" : "");
        });
    listener =
        combined->addListener(AudioProperty::devices, kNoDevice, 0, queue, [this] { ++told; });
  }

  // Hogged, and let go of by the server, whose default then goes elsewhere.
  void hogWithoutServer(AudioDeviceID device) {
    ASSERT_TRUE(combined->setHogOwner(device, getpid()).ok());
    server->removeDevice(serverDac);
    ASSERT_TRUE(comesToShow({"network", "dac", "alsa:hw:0,3"}));
  }

  static VirtualDeviceDescription dac() { return {.uid = "dac", .name = "DAC"}; }
  AudioDeviceID id(const char* uid) { return combined->deviceForUID(uid); }
  std::vector<std::string> uids() {
    std::vector<std::string> all;
    for (const AudioDeviceID device : combined->devices())
      all.push_back(combined->deviceUID(device));
    return all;
  }
  // The combined object learns of changes on its own queue.
  bool comesToShow(const std::vector<std::string>& expected) {
    return test::eventually([&] { return uids() == expected; });
  }
};

using UIDs = std::vector<std::string>;

std::uint32_t renderNothing(void*, AudioBufferList&, std::uint32_t) noexcept {
  return 0;
}

AudioStatus startOn(OutputUnit& unit, AudioDeviceID device, double rate) {
  AudioStatus status = unit.setDevice(device);
  if (status.ok()) status = unit.setInputFormat(StreamFormat::planarFloat(rate, 2));
  if (status.ok()) status = unit.setRenderCallback(&renderNothing, nullptr);
  if (status.ok()) status = unit.initialize();
  return status.ok() ? unit.start() : status;
}

TEST(CombinedAudio, OneDevicePerCardAndTheRestOfBothSides) {
  Machine machine;
  EXPECT_EQ(machine.uids(), (UIDs{"dac", "network", "alsa:hw:0,3"}));
  const AudioDeviceID dac = machine.id("dac");
  EXPECT_EQ(machine.combined->defaultOutputDevice(), dac);
  EXPECT_EQ(machine.id("alsa:hw:1,0"), dac);
  EXPECT_EQ(machine.combined->deviceName(dac), "DAC");
  EXPECT_EQ(machine.combined->deviceName(machine.id("alsa:hw:0,3")), "HDMI hw");
  EXPECT_EQ(machine.id("nowhere"), kNoDevice);
  EXPECT_EQ(machine.combined->setNominalSampleRate(99, 44'100).code, -ENODEV);
  EXPECT_EQ(machine.combined->setHogOwner(99, getpid()).code, -ENODEV);
  EXPECT_FALSE(machine.combined->hasOutputStreams(99));
}

TEST(CombinedAudio, UnitsPlayThroughTheServerUntilTheDeviceIsHogged) {
  Machine machine;
  const AudioDeviceID dac = machine.id("dac");
  AudioStatus status;
  const auto shared = machine.combined->createOutputUnit(status);
  ASSERT_TRUE(startOn(*shared, dac, 44'100).ok());
  EXPECT_TRUE(machine.server->isRunning(machine.serverDac));
  EXPECT_FALSE(machine.alsa->isRunning(machine.alsaDac));
  EXPECT_EQ(machine.combined->nominalSampleRate(dac), 44'100);
  shared->uninitialize();

  ASSERT_TRUE(machine.combined->setHogOwner(dac, getpid()).ok());
  EXPECT_EQ(machine.combined->hogOwner(dac), getpid());
  EXPECT_EQ(machine.alsa->hogOwner(machine.alsaDac), getpid());
  EXPECT_EQ(machine.server->hogOwner(machine.serverDac), -1);
  EXPECT_EQ(machine.combined->nominalSampleRate(dac), 192'000);
  EXPECT_EQ(machine.combined->availableSampleRates(dac).size(), 1u);
  const auto exclusive = machine.combined->createOutputUnit(status);
  ASSERT_TRUE(startOn(*exclusive, dac, 192'000).ok());
  EXPECT_TRUE(machine.alsa->isRunning(machine.alsaDac));
  EXPECT_FALSE(machine.server->isRunning(machine.serverDac));
}

TEST(CombinedAudio, AHoggedDeviceStaysWhileTheServerHasLetGoOfIt) {
  Machine machine;
  const AudioDeviceID dac = machine.id("dac");
  machine.hogWithoutServer(dac);
  EXPECT_EQ(machine.combined->deviceName(dac), "DAC hw");
  EXPECT_EQ(machine.told, 0);

  // Given back, it returns as soon as the server shows it.
  std::thread sessionManager([&] {
    test::eventually([&] { return machine.alsa->hogOwner(machine.alsaDac) == -1; });
    machine.server->addDevice(Machine::dac());
  });
  const auto before = std::chrono::steady_clock::now();
  EXPECT_TRUE(machine.combined->setHogOwner(dac, -1).ok());
  EXPECT_LT(std::chrono::steady_clock::now() - before, 1500ms);
  sessionManager.join();
  EXPECT_EQ(machine.id("dac"), dac);
  EXPECT_EQ(machine.combined->deviceName(dac), "DAC");
  EXPECT_EQ(machine.combined->hogOwner(dac), -1);
  machine.queue.sync([] {});
  EXPECT_EQ(machine.told, 0);
}

TEST(CombinedAudio, AServerThatDoesNotTakeItBackLeavesAnAlsaDevice) {
  Machine machine;
  const AudioDeviceID dac = machine.id("dac");
  machine.hogWithoutServer(dac);
  EXPECT_TRUE(machine.combined->setHogOwner(dac, -1).ok());
  EXPECT_EQ(machine.uids(), (UIDs{"network", "alsa:hw:1,0", "alsa:hw:0,3"}));
  EXPECT_FALSE(machine.combined->hasOutputStreams(dac));
}

TEST(CombinedAudio, AHogThatIsRefusedChangesNothing) {
  Machine machine;
  const AudioDeviceID dac = machine.id("dac");
  machine.alsa->failNext(VirtualOperation::setHogOwner,
                         AudioStatus::failure(-EBUSY, "held by jackd"));
  const AudioStatus status = machine.combined->setHogOwner(dac, getpid());
  EXPECT_EQ(status.code, -EBUSY);
  EXPECT_EQ(status.text, "held by jackd");
  EXPECT_EQ(machine.combined->hogOwner(dac), -1);
  EXPECT_EQ(machine.combined->nominalSampleRate(dac), 44'100);
  AudioStatus made;
  const auto unit = machine.combined->createOutputUnit(made);
  ASSERT_TRUE(startOn(*unit, dac, 44'100).ok());
  EXPECT_TRUE(machine.server->isRunning(machine.serverDac));
}

TEST(CombinedAudio, AHogThatIsTakenAwayIsNoticedWithTheLoss) {
  Machine machine;
  const AudioDeviceID dac = machine.id("dac");
  ASSERT_TRUE(machine.combined->setHogOwner(dac, getpid()).ok());
  std::atomic<int> lost = 0;
  AudioStatus status;
  const auto unit = machine.combined->createOutputUnit(status);
  unit->setEventHandler([&](OutputEvent event) { lost += event == OutputEvent::deviceLost; });
  ASSERT_TRUE(startOn(*unit, dac, 192'000).ok());
  machine.server->removeDevice(machine.serverDac);
  ASSERT_TRUE(machine.comesToShow({"network", "dac", "alsa:hw:0,3"}));
  ASSERT_TRUE(machine.alsa->setHogOwner(machine.alsaDac, -1).ok());
  machine.alsa->raise(machine.alsaDac, OutputEvent::deviceLost);
  EXPECT_TRUE(machine.comesToShow({"network", "alsa:hw:1,0", "alsa:hw:0,3"}));
  EXPECT_EQ(lost, 1);
}

TEST(CombinedAudio, DevicesComeAndGoOnBothSides) {
  Machine machine;
  const AudioDeviceID dac = machine.id("dac");
  machine.server->removeDevice(machine.serverDac);
  ASSERT_TRUE(machine.comesToShow({"network", "alsa:hw:1,0", "alsa:hw:0,3"}));
  EXPECT_EQ(machine.combined->deviceName(dac), "");
  machine.server->addDevice(Machine::dac());
  ASSERT_TRUE(machine.comesToShow({"network", "dac", "alsa:hw:0,3"}));
  EXPECT_EQ(machine.id("dac"), dac);
  machine.alsa->removeDevice(machine.alsaDac);
  machine.queue.sync([] {});
  EXPECT_EQ(machine.told, 2);
  // Without its ALSA side a hog is the server's affair.
  ASSERT_TRUE(machine.combined->setHogOwner(dac, getpid()).ok());
  EXPECT_EQ(machine.server->hogOwner(machine.serverDac), getpid());
}

TEST(CombinedAudio, SettingsMadeBeforeTheDeviceReachItsUnit) {
  Machine machine;
  AudioStatus status;
  const auto unit = machine.combined->createOutputUnit(status);
  EXPECT_EQ(unit->initialize().code, -ENODEV);
  ASSERT_TRUE(unit->setMaximumFramesPerSlice(256).ok());
  ASSERT_TRUE(unit->setInputFormat(StreamFormat::planarFloat(44'100, 2)).ok());
  std::atomic<std::uint32_t> largest = 0;
  ASSERT_TRUE(unit->setRenderCallback(
                      [](void* context, AudioBufferList&, std::uint32_t frames) noexcept {
                        *static_cast<std::atomic<std::uint32_t>*>(context) = frames;
                        return 0u;
                      },
                      &largest)
                  .ok());
  EXPECT_EQ(unit->setDevice(99).code, -ENODEV);
  ASSERT_TRUE(unit->setDevice(machine.id("dac")).ok());
  ASSERT_TRUE(unit->initialize().ok());
  ASSERT_TRUE(unit->start().ok());
  EXPECT_TRUE(machine.server->pull(machine.serverDac, 256));
  EXPECT_EQ(largest, 256u);
  unit->stop();
  EXPECT_FALSE(machine.server->pull(machine.serverDac, 256));
}

}  // namespace
}  // namespace velorin
