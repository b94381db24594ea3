// Which backend is picked on a machine with a sound server, with ALSA alone, and with nothing.
#include "platform/audio/AudioHardwareFactory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>

#include "support/PipeWireSession.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using test::PipeWireSession;

// A machine whose ALSA configuration is this text, and which has no sound server unless one is
// started.
class AudioHardwareFactory : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("XDG_RUNTIME_DIR", _folder.path().c_str(), 1);
    unsetenv("PIPEWIRE_RUNTIME_DIR");
    unsetenv("PIPEWIRE_REMOTE");
    configure("");
  }
  void configure(const std::string& alsa) {
    const auto file = _folder / fmt::format("asound{}.conf", ++_version);
    std::ofstream(file) << alsa << "\n";
    setenv("ALSA_CONFIG_PATH", file.c_str(), 1);
  }

 private:
  test::TemporaryFolder _folder;
  int _version = 0;
};

TEST_F(AudioHardwareFactory, WithoutAnySoundThePacedNullOutputPlaysAndSaysSo) {
  const auto before = std::chrono::steady_clock::now();
  const AudioHardwareChoice choice = createAudioHardware(AudioBackendChoice::automatic);
  EXPECT_LT(std::chrono::steady_clock::now() - before, 3s);
  ASSERT_NE(choice.hardware, nullptr);
  EXPECT_EQ(choice.notice, "No sound device found: playing to the null output");
  EXPECT_EQ(choice.hardware->backendName(), "virtual");
  EXPECT_NE(choice.hardware->defaultOutputDevice(), kNoDevice);
}

TEST_F(AudioHardwareFactory, AlsaAloneServesWhereItHasADevice) {
  configure("pcm.default { type null }");
  const AudioHardwareChoice choice = createAudioHardware(AudioBackendChoice::automatic);
  ASSERT_NE(choice.hardware, nullptr);
  EXPECT_EQ(choice.notice, "");
  EXPECT_EQ(choice.hardware->backendName(), "ALSA");
  const AudioDeviceID device = choice.hardware->defaultOutputDevice();
  EXPECT_EQ(choice.hardware->deviceUID(device), "alsa:default");
  EXPECT_FALSE(choice.hardware->availableSampleRates(device).empty());
}

TEST_F(AudioHardwareFactory, WhatIsAskedForByNameIsMadeOrRefused) {
  const AudioHardwareChoice pipewire = createAudioHardware(AudioBackendChoice::pipewire);
  EXPECT_EQ(pipewire.hardware, nullptr);
  EXPECT_NE(pipewire.notice.find("PipeWire does not answer"), std::string::npos) << pipewire.notice;
  const AudioHardwareChoice alsa = createAudioHardware(AudioBackendChoice::alsa);
  ASSERT_NE(alsa.hardware, nullptr);
  EXPECT_EQ(alsa.hardware->backendName(), "ALSA");
  const AudioHardwareChoice null = createAudioHardware(AudioBackendChoice::virtualNull);
  ASSERT_NE(null.hardware, nullptr);
  EXPECT_EQ(null.hardware->backendName(), "virtual");
  EXPECT_EQ(null.notice, "");
}

TEST_F(AudioHardwareFactory, ASoundServerIsUsedTogetherWithAlsa) {
  VELORIN_NEEDS_PIPEWIRE();
  PipeWireSession session({{"first", 48'000}, {"second", 44'100}});
  ASSERT_TRUE(session.start()) << session.error();
  // ALSA's default leads to the server as a rule: it is not a device of its own beside it.
  configure("pcm.default { type null }\npcm.extra { type null }");
  const AudioHardwareChoice choice = createAudioHardware(AudioBackendChoice::automatic);
  ASSERT_NE(choice.hardware, nullptr);
  EXPECT_EQ(choice.notice, "");
  EXPECT_EQ(choice.hardware->backendName(), "PipeWire + ALSA");
  EXPECT_NE(choice.hardware->deviceForUID("first"), kNoDevice);
  EXPECT_NE(choice.hardware->deviceForUID("second"), kNoDevice);
  EXPECT_NE(choice.hardware->defaultOutputDevice(), kNoDevice);
  for (const AudioDeviceID device : choice.hardware->devices()) {
    EXPECT_FALSE(choice.hardware->deviceUID(device).starts_with("alsa:"));
  }
  const AudioDeviceID extra = choice.hardware->deviceForUID("alsa:extra");
  ASSERT_NE(extra, kNoDevice);
  EXPECT_EQ(choice.hardware->deviceName(extra), "extra (ALSA)");
}

}  // namespace
}  // namespace velorin
