// Settings of the sound through the player: shown at once, then in the engine, in the preferences
// and in the profile of the device.
#include "session/SoundSettings.h"

#include <atomic>

#include "dsp/DSPEffects.h"
#include "dsp/presets/BuiltInPresets.h"
#include "dsp/settings/DeviceSettingsManager.h"
#include "dsp/settings/EffectSettings.h"
#include "engine/EngineHarness.h"
#include "foundation/SerialQueue.h"
#include "session/ABComparison.h"
#include "session/PlayerState.h"
#include "support/Eventually.h"

namespace velorin {
namespace {

using enum DSPEffectType;

class SoundSettingsTest : public test::EngineHarness, public testing::Test {
 protected:
  SoundSettingsTest() : EngineHarness(withVolume()) {
    PlayerState::Options options;
    options.restoresSession = options.storesSession = false;
    player.emplace(*engine, preferences, bus, PlayerServices(), options);
    uid = hardware.deviceUID(device);
    settle();
    observation = player->observe([this](PlayerChanges changes) {
      if (changes.has(PlayerChange::effects)) ++changesTold;
    });
  }
  ~SoundSettingsTest() override { player.reset(); }

  static VirtualDeviceDescription withVolume() {
    auto description = test::wideDevice(VirtualClock::manual);
    description.volume = 0.5F;
    return description;
  }

  /// The engine has done what it was told, and the main thread knows.
  void settle() {
    for (int round = 0; round < 3; ++round) {
      player->engineQueue().sync([] {});
      MainThread::instance().runReady();
    }
  }
  SoundSettings& sound() { return player->sound(); }
  DSPEffects& effects() { return engine->effects(); }
  DSPSnapshot inEngine() { return captureSnapshot(effects(), preferences); }
  std::optional<DeviceSettings> profile() { return DeviceSettingsManager(preferences).load(uid); }

  static DSPChainEntry entry(DSPEffectType type, bool on) {
    return {fmt::format("00000000-0000-4000-8000-0000000000{:02}", static_cast<int>(type)), type,
            on, std::nullopt};
  }

  std::optional<PlayerState> player;
  std::string uid;
  PlayerState::Observation observation;
  int changesTold = 0;
};

TEST_F(SoundSettingsTest, EverySettingGoesEverywhereAndBackAgain) {
  std::vector<DSPChainEntry> all;
  for (const DSPEffectType type : allEffectTypes()) all.push_back(entry(type, false));
  sound().setChain(all);
  for (const DSPSwitchInfo& info : allDSPSwitches()) {
    SCOPED_TRACE(info.key);
    sound().toggleEffect(info.effect);
    EXPECT_TRUE(sound().isEffectEnabled(info.effect));
    settle();
    EXPECT_TRUE(effects().effect(info.effect).isEnabled());
    EXPECT_EQ(preferences.getBool(info.key), true);
  }
  sound().toggleEffect(headphoneProfile);
  for (const DSPSettingInfo& info : allDSPSettings()) {
    SCOPED_TRACE(info.name);
    settle();
    changesTold = 0;
    const double before = sound().value(info.setting);
    for (const double noChange : {before, static_cast<double>(NAN)}) {
      sound().set(info.setting, noChange);
    }
    settle();
    EXPECT_EQ(changesTold, 0);
    sound().set(info.setting, 1e9);
    if (sound().value(info.setting) == before) sound().set(info.setting, -1e9);
    const double now = sound().value(info.setting);
    EXPECT_NE(now, before);
    settle();
    EXPECT_GE(changesTold, 1);
    EXPECT_EQ(valueOf(info.setting, effects()), now);
    EXPECT_EQ(preferences.getDouble(info.key), now);
  }
  sound().applyEqualizerPreset("Rock", builtInPresets()[7].bands);
  sound().updateBand(3, 7.04, 99, EQBand::FilterType::lowShelf);
  sound().updateBand(31, 1, 1, std::nullopt);
  settle();
  EXPECT_EQ(sound().equalizerBands()[3], (EQBand{40, 7, 10, EQBand::FilterType::lowShelf}));
  EXPECT_EQ(inEngine(), sound().snapshot());

  EXPECT_TRUE(test::eventually([&] {
    MainThread::instance().runReady();
    DeviceSettings expected = profile().value_or(DeviceSettings());
    captureEffects(effects(), preferences, expected);
    return profile() == expected;
  }));
  EXPECT_EQ(profile()->equalizerPresetName, "Rock");

  sound().resetEffect(crossfeed);
  settle();
  EXPECT_EQ(effects().crossfeed.cutoffFrequency(), 700);
}

TEST_F(SoundSettingsTest, ADragIsOneSaveOfTheProfile) {
  std::atomic<int> saves = 0;
  const auto counting =
      preferences.observe(fmt::format("device:{}:balanceValue", uid), [&] { ++saves; });
  for (int i = 1; i <= 100; ++i) sound().set(DSPSetting::balanceValue, i / 100.0);
  ASSERT_TRUE(waitUntil([&] { return saves > 0; }));
  EXPECT_EQ(profile()->balanceValue, 1);
  EXPECT_EQ(saves, 1);
  sound().set(DSPSetting::balanceValue, 0);
  bus.post(SavePlaybackState{});  // the program ends before the time is up
  settle();
  EXPECT_EQ(profile()->balanceValue, 0);
}

TEST_F(SoundSettingsTest, ChainAndSwitchesStayInStep) {
  sound().setChain({entry(dither, true), entry(crossfeed, false), entry(dither, false)});
  EXPECT_TRUE(sound().isEffectEnabled(dither));
  sound().toggleEffect(crossfeed);
  sound().toggleEffect(monoMix);           // in no chain: its switch alone
  sound().toggleEffect(headphoneProfile);  // in no chain: nothing
  settle();
  const std::vector<DSPChainEntry> expected{entry(dither, true), entry(crossfeed, true)};
  EXPECT_EQ(sound().dspChainEntries(), expected);
  EXPECT_EQ(effects().entries(), expected);
  EXPECT_EQ(storedChain(preferences)->entries, expected);
  EXPECT_TRUE(effects().monoMix.isEnabled());
  EXPECT_FALSE(sound().isEffectEnabled(headphoneProfile));

  DSPChainEntry nameless = entry(headphoneProfile, true);
  nameless.id = "none";
  sound().setChain({nameless});
  settle();
  EXPECT_TRUE(sound().isEffectEnabled(headphoneProfile));
  EXPECT_EQ(storedChain(preferences)->entries, sound().dspChainEntries());
  sound().resetChain();
  settle();
  EXPECT_EQ(effects().entries().size(), 3u);
}

TEST_F(SoundSettingsTest, HeadroomFollowsWhatItDependsOn) {
  sound().setChain({entry(preAmp, true), entry(loudnessCompensation, true)});
  sound().set(DSPSetting::preAmpGainDB, 4);
  settle();
  EXPECT_FLOAT_EQ(static_cast<float>(sound().currentHeadroomDB()), 4);
  player->setVolume(0);
  settle();
  EXPECT_FLOAT_EQ(static_cast<float>(sound().currentHeadroomDB()), 16);
  sound().setHeadroomManagementEnabled(false);
  settle();
  EXPECT_EQ(sound().currentHeadroomDB(), 0);
  EXPECT_EQ(preferences.getBool("headroomManagementEnabled"), false);
  sound().set(DSPSetting::preAmpGainDB, 5);
  settle();
  EXPECT_EQ(sound().currentHeadroomDB(), 0);
  sound().setHeadroomManagementEnabled(true);
  settle();
  EXPECT_FLOAT_EQ(static_cast<float>(sound().currentHeadroomDB()), 17);
}

TEST_F(SoundSettingsTest, AnotherDeviceBringsItsOwnSettings) {
  player->setGaplessEnabled(false);
  player->setMemoryPlayback(true);
  sound().set(DSPSetting::crossfeedLevel, 0.25);
  sound().set(DSPSetting::tubeWarmthDrive, 0.75);
  settle();
  auto description = withVolume();
  description.uid = "other";
  const AudioDeviceID other = hardware.addDevice(description);
  DeviceSettings its;
  its.gaplessPlayback = its.monoMixEnabled = true;
  its.sampleRateStrategy = 2;
  its.volumeMode = static_cast<int>(VolumeMode::hardware);
  its.dspChainConfigData = chainData({entry(monoMix, true)});
  DeviceSettingsManager(preferences).save(its, "other");

  engine->selectOutputDevice(other);
  ASSERT_TRUE(waitUntil([&] { return player->gaplessEnabled(); }));
  settle();
  EXPECT_FALSE(player->memoryPlayback());
  EXPECT_EQ(player->sampleRateStrategy(), SampleRateStrategy::max);
  EXPECT_EQ(player->volumeMode(), VolumeMode::hardware);
  EXPECT_EQ(player->volume(), 0.5);
  EXPECT_TRUE(sound().isEffectEnabled(monoMix));
  EXPECT_EQ(sound().value(DSPSetting::crossfeedLevel), 0.595);
  EXPECT_EQ(sound().value(DSPSetting::tubeWarmthDrive), 0.75);
  EXPECT_EQ(inEngine(), sound().snapshot());
  EXPECT_EQ(preferences.getBool("gaplessPlayback"), true);

  engine->selectOutputDevice(device);
  ASSERT_TRUE(waitUntil([&] { return player->memoryPlayback(); }));
  settle();
  EXPECT_EQ(sound().value(DSPSetting::crossfeedLevel), 0.25);
  EXPECT_EQ(player->volume(), 1);
  EXPECT_EQ(inEngine(), sound().snapshot());
}

TEST_F(SoundSettingsTest, TheVolumeIsTheListenersOrTheDevicesOrNone) {
  const auto ofDevice = [&] { return engine->hardwareVolume(device).value_or(-1); };
  player->setVolume(0.25);
  settle();
  EXPECT_TRUE(player->hardwareVolumeAvailable());
  player->setVolumeMode(VolumeMode::hardware);
  EXPECT_EQ(player->volume(), 0.5);
  player->setVolume(0.75);
  settle();
  EXPECT_EQ(ofDevice(), 0.75F);
  EXPECT_EQ(engine->volume(), 1.0F);
  EXPECT_EQ(engine->volumeMode(), VolumeMode::hardware);
  EXPECT_EQ(preferences.getDouble("volume"), 0.25);
  EXPECT_TRUE(hardware.setVolume(device, 0, 0.125F).ok());
  ASSERT_TRUE(waitUntil([&] { return player->volume() == 0.125; }));

  player->setVolumeMode(VolumeMode::fixed);
  player->setVolume(0.5);
  settle();
  EXPECT_EQ(player->volume(), 1);
  EXPECT_EQ(ofDevice(), 0.125F);
  EXPECT_EQ(preferences.getInt("volumeMode"), 2);
  player->setVolumeMode(VolumeMode::software);
  settle();
  EXPECT_EQ(player->volume(), 0.25);
  EXPECT_EQ(engine->volume(), 0.25F);
}

/// A comparison, told by what is heard of the pre-amp: gain and offset in dB.
TEST_F(SoundSettingsTest, TwoSoundsSideBySide) {
  ABComparison& ab = player->comparison();
  const auto heard = [&] {
    settle();
    return effects().preAmp.gain() + effects().preAmp.offset();
  };
  const auto shown = [&] { return sound().value(DSPSetting::preAmpGainDB); };
  sound().setChain({entry(preAmp, true)});
  sound().set(DSPSetting::preAmpGainDB, -2);
  ab.toggleSide();
  ab.switchToSide(ABSide::b);
  ab.captureSide(ABSide::b);
  EXPECT_FALSE(ab.isActive() || ab.snapshot(ABSide::b));
  EXPECT_EQ(ab.currentSide(), ABSide::a);

  ab.enterABMode();
  const DSPSnapshot both = sound().snapshot();
  ab.switchToSide(ABSide::b);
  EXPECT_EQ(heard(), -2);
  EXPECT_EQ(inEngine(), both);
  ab.setABGainOffset(3);
  EXPECT_EQ(heard(), 1);
  EXPECT_EQ(shown(), -2);
  EXPECT_EQ(preferences.getDouble("preAmpGainDB"), -2);
  ab.setABGainOffset(NAN);
  ab.setABGainOffset(99);
  EXPECT_EQ(ab.gainOffsetDB(), 6);
  ab.setABGainOffset(3);
  ab.toggleSide();
  EXPECT_EQ(heard(), -2);

  // An edit is lost unless it is captured.
  sound().set(DSPSetting::preAmpGainDB, 4);
  ab.toggleSide();
  EXPECT_EQ(heard(), 1);
  sound().setEffectEnabled(preAmp, false);
  sound().set(DSPSetting::preAmpGainDB, 5);
  ab.captureSide(ABSide::b);
  ab.switchToSide(ABSide::a);
  EXPECT_EQ(heard(), -2);
  EXPECT_EQ(inEngine(), both);
  ab.toggleSide();
  EXPECT_EQ(heard(), 8);
  EXPECT_FALSE(effects().preAmp.isEnabled() || sound().dspChainEntries()[0].enabled);

  ab.exitABMode();
  EXPECT_EQ(heard(), 5);
  EXPECT_EQ(inEngine(), sound().snapshot());
  EXPECT_FALSE(ab.isActive() || ab.snapshot(ABSide::a) || ab.gainOffsetDB() != 0);
}

}  // namespace
}  // namespace velorin
