// One table of all settings through every form in which they are kept: what is forgotten in one of
// them does not come back.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "dsp/DSPEffects.h"
#include "dsp/presets/BuiltInPresets.h"
#include "dsp/settings/DSPSnapshot.h"
#include "dsp/settings/DeviceSettingsManager.h"
#include "dsp/settings/EffectSettings.h"
#include "foundation/Base64.h"
#include "foundation/Preferences.h"

namespace velorin {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

EffectParameter parameterOf(DSPEffects& effects, const DSPSettingInfo& info) {
  auto parameters = effects.effect(info.effect).parameters();
  return *std::ranges::find(parameters, info.parameter, &EffectParameter::name);
}

/// A value of the panel that is not the default.
double anotherValue(const EffectParameter& parameter) {
  return parameter.defaultValue == parameter.maximum ? parameter.minimum : parameter.maximum;
}

/// Everything different from a fresh program.
void changeEverything(DSPEffects& effects) {
  std::vector<DSPChainEntry> entries;
  for (const DSPEffectType type : allEffectTypes()) {
    const std::string id = fmt::format("00000000-0000-4000-8000-0000000000{:02}", entries.size());
    entries.push_back({id, type, true, std::nullopt});
  }
  effects.applyChain(entries);
  for (const DSPSettingInfo& info : allDSPSettings()) {
    EXPECT_TRUE(setValue(info.setting, anotherValue(parameterOf(effects, info)), effects));
  }
}

struct Fixture {
  Preferences preferences;
  std::unique_ptr<DSPEffects> effects = std::make_unique<DSPEffects>();
  DeviceSettingsManager profiles{preferences};

  DSPSnapshot snapshot() { return captureSnapshot(*effects, preferences); }
};

TEST(Settings, TheTableHasEveryParameterAndTheEffectsItsLimits) {
  DSPEffects effects;
  std::size_t parameters = 0;
  for (const DSPEffectType type : allEffectTypes())
    parameters += effects.effect(type).parameters().size();
  EXPECT_EQ(parameters, kDSPSettingCount);
  for (std::size_t i = 0; i < kDSPSettingCount; ++i) {
    const DSPSettingInfo& info = allDSPSettings()[i];
    SCOPED_TRACE(info.name);
    EXPECT_EQ(static_cast<std::size_t>(info.setting), i);
    EXPECT_EQ(dspSetting(info.name), info.setting);
    const EffectParameter parameter = parameterOf(effects, info);
    EXPECT_TRUE(info.takes(parameter.minimum) && info.takes(parameter.maximum));
    EXPECT_DOUBLE_EQ(valueOf(info.setting, effects), parameter.defaultValue);
    EXPECT_DOUBLE_EQ(*numberAt(DSPSnapshot(), info.inSnapshot), parameter.defaultValue);
    for (const double limit : {info.lowest, info.highest}) {
      EXPECT_TRUE(setValue(info.setting, limit, effects));
      EXPECT_EQ(parameter.get(), limit);
    }
    for (const double wrong : {kNaN, kInfinity, info.highest + 1, info.lowest - 1}) {
      EXPECT_FALSE(setValue(info.setting, wrong, effects));
      EXPECT_EQ(parameter.get(), info.highest);
    }
  }
}

TEST(Settings, EverySettingComesBackFromPreferencesProfileAndSnapshot) {
  Fixture a;
  const std::vector<EQBand>& rock = builtInPresets()[7].bands;
  a.effects->equalizer.setBands(rock);
  a.preferences.setText("equalizerPresetName", builtInPresets()[7].name);
  changeEverything(*a.effects);
  storeEffects(*a.effects, a.preferences);
  a.preferences.setBool("headroomManagementEnabled", false);
  const DSPSnapshot changed = a.snapshot();
  for (const DSPSwitchInfo& info : allDSPSwitches()) {
    EXPECT_EQ(a.preferences.getBool(info.key), true) << info.key;
    EXPECT_TRUE(changed.*info.inSnapshot) << info.key;
  }
  for (const DSPSettingInfo& info : allDSPSettings()) {
    EXPECT_EQ(a.preferences.getDouble(info.key), numberAt(changed, info.inSnapshot)) << info.key;
    EXPECT_NE(numberAt(changed, info.inSnapshot), numberAt(DSPSnapshot(), info.inSnapshot));
  }

  // The next start of the program.
  storeChain(a.effects->entries(), a.preferences);
  DSPEffects restarted;
  loadEffects(restarted, a.preferences);
  EXPECT_FALSE(restarted.headroomDSP.isManaged());
  restarted.applyChain(storedChain(a.preferences)->entries);
  EXPECT_EQ(captureSnapshot(restarted, a.preferences), changed);

  // A snapshot, through its JSON.
  Fixture b;
  const auto read = snapshotFromJSON(toJSON(changed));
  ASSERT_TRUE(read) << read.error().text;
  EXPECT_EQ(read.value(), changed);
  applySnapshot(read.value(), *b.effects, b.preferences);
  EXPECT_EQ(b.snapshot(), changed);
  EXPECT_EQ(storedChain(b.preferences)->entries, a.effects->entries());

  // A profile, through the preferences and through its JSON; effects that belong to the listener
  // are no part of it.
  DeviceSettings profile;
  profile.exclusiveMode = true;
  profile.fixedSampleRate = 96000;
  profile.volumeMode = 2;
  captureEffects(*a.effects, a.preferences, profile);
  a.profiles.save(profile, "DAC:\xFF");
  EXPECT_EQ(a.profiles.load("DAC:\xFF"), profile);
  EXPECT_EQ(a.profiles.load("other"), std::nullopt);
  const auto same = deviceSettingsFromJSON(toJSON(profile));
  ASSERT_TRUE(same) << same.error().text;
  EXPECT_EQ(same.value(), profile);
  Fixture c;
  applyEffects(profile, *c.effects, c.preferences);
  const DSPSnapshot there = c.snapshot();
  for (const DSPSettingInfo& info : allDSPSettings()) {
    const bool isOfDevice = !std::holds_alternative<std::monostate>(info.inDevice);
    EXPECT_EQ(numberAt(there, info.inSnapshot),
              numberAt(isOfDevice ? changed : DSPSnapshot(), info.inSnapshot))
        << info.name;
  }
  EXPECT_EQ(c.effects->entries(), a.effects->entries());
  EXPECT_EQ(c.effects->equalizer.bands(), a.effects->equalizer.bands());
}

TEST(Settings, WhatCannotBeHadIsPassedOver) {
  Fixture f;
  const DSPSnapshot before = f.snapshot();
  for (const DSPSettingInfo& info : allDSPSettings()) f.preferences.setDouble(info.key, kNaN);
  f.preferences.setInt("ditherAlgorithm", 4);
  f.preferences.setText("crossfeedCutoff", "700");
  f.preferences.setDouble("declickerMaxClickLength", 200.9);  // a fraction of a whole number
  f.preferences.setText("equalizerPresetName", "no such preset");
  loadEffects(*f.effects, f.preferences);
  f.preferences.setText("equalizerPresetName", "Flat");
  EXPECT_EQ(f.effects->declicker.maxClickLength(), 200);
  f.effects->declicker.setMaxClickLength(48);
  EXPECT_EQ(f.snapshot(), before);

  DSPSnapshot strange = before;
  for (const DSPSettingInfo& info : allDSPSettings()) {
    putNumber(strange, info.inSnapshot, info.highest + 1);
  }
  strange.chainConfigData = {'{'};
  strange.equalizerBandsData = {'[', ']', ','};
  strange.monoMixEnabled = true;
  applySnapshot(strange, *f.effects, f.preferences);
  DSPSnapshot expected = before;
  expected.monoMixEnabled = true;
  EXPECT_EQ(f.snapshot(), expected);
}

TEST(Settings, SwitchesAndChainOfAProfileAgree) {
  Fixture f;
  const auto entry = [](DSPEffectType type, bool on) {
    return DSPChainEntry{"1B4E28BA-2FA1-41D2-883F-0016D3CCA427", type, on, std::nullopt};
  };
  f.effects->applyChain(
      {entry(DSPEffectType::crossfeed, true), entry(DSPEffectType::dither, true)});
  // A first visit: the chain stays, its effects are off.
  applyEffects({}, *f.effects, f.preferences);
  for (const DSPChainEntry& each : f.effects->entries()) EXPECT_FALSE(each.enabled);
  EXPECT_EQ(f.preferences.getBool("crossfeedEnabled"), false);
  EXPECT_EQ(storedChain(f.preferences)->entries, f.effects->entries());

  DeviceSettings profile;
  profile.monoMixEnabled = true;
  profile.dspChainConfigData = chainData({entry(DSPEffectType::dither, true)});
  applyEffects(profile, *f.effects, f.preferences);
  EXPECT_TRUE(f.effects->dither.isEnabled() && f.effects->monoMix.isEnabled());
  EXPECT_EQ(f.preferences.getBool("ditherEnabled"), true);
  EXPECT_EQ(f.effects->entries().size(), 1u);
}

TEST(Settings, AProfileReadsWithItsFallbacks) {
  Fixture f;
  const auto key = [](const char* field) { return fmt::format("device:d:{}", field); };
  const auto loaded = [&] { return f.profiles.load("d").value(); };
  f.profiles.save({}, "");
  f.preferences.setBool(key("_hasProfile"), true);
  EXPECT_EQ(loaded(), DeviceSettings());

  for (const double unusable : {0.0, -1.0, kNaN, -kInfinity}) {
    for (const char* field :
         {"memoryPlaybackLimitMB", "resamplingMultiplier", "crossfadeDuration", "crossfeedCutoff",
          "crossfeedLevel", "crossfeedDelay", "ditherTargetBitDepth"}) {
      f.preferences.setDouble(key(field), unusable);
    }
    EXPECT_EQ(loaded(), DeviceSettings()) << unusable;
  }
  f.preferences.setInt(key("resamplingMultiplier"), 2);
  f.preferences.setInt(key("volumeMode"), 3);
  f.preferences.setText(key("integerMode"), "yes");
  f.preferences.setInt(key("balanceValue"), -1);
  DeviceSettings expected;
  expected.balanceValue = -1;
  EXPECT_EQ(loaded(), expected);

  f.preferences.setBool(key("resamplingEnabled"), true);
  EXPECT_EQ(loaded().sampleRateStrategy, 1);
  f.preferences.setInt(key("sampleRateStrategy"), 0);
  EXPECT_EQ(loaded().sampleRateStrategy, 0);

  f.profiles.migrateIfNeeded(expected, "first");
  f.profiles.migrateIfNeeded(expected, "second");
  EXPECT_EQ(f.profiles.load("first"), expected);
  EXPECT_FALSE(f.profiles.load("second"));
}

TEST(Settings, HostileTextsAreRefusedWithAReason) {
  const std::string snapshot = toJSON(DSPSnapshot());
  const std::string device = toJSON(DeviceSettings());
  EXPECT_EQ(nlohmann::json::parse(snapshot).size(), 46u);
  EXPECT_EQ(nlohmann::json::parse(device).size(), 36u);
  const auto with = [](const std::string& json, const char* key, const nlohmann::json& value) {
    auto object = nlohmann::json::parse(json);
    value.is_discarded() ? (void)object.erase(key) : (void)(object[key] = value);
    return object.dump();
  };
  const nlohmann::json gone(nlohmann::json::value_t::discarded);
  const auto errorOf = [](const auto& result) { return result ? "" : result.error().text; };
  const struct {
    std::string json;
    std::string error;
  } cases[] = {
      {"", "not JSON from byte 1 on"},
      {"[]", "not an object"},
      {std::string(100'000, '['), "a value that holds others"},
      {"{\"a\":1e999}", "not JSON: a number is too large"},
      {with(snapshot, "declickerBlend", gone), "\"declickerBlend\" is missing"},
      {with(snapshot, "monoMixEnabled", 1), "\"monoMixEnabled\" is not true or false"},
      {with(snapshot, "replayGainMode", 0.5), "\"replayGainMode\" is not a whole number"},
      {with(snapshot, "vinylWarmth", "1"), "\"vinylWarmth\" is not a number"},
      {with(snapshot, "equalizerPresetName", nullptr), "\"equalizerPresetName\" is not a text"},
      {with(snapshot, "chainConfigData", "e30"), "\"chainConfigData\" is not a text in base64"},
      {with(snapshot, "chainConfigData", {{"a", 1}}), "a value that holds others"},
  };
  for (const auto& each : cases) EXPECT_EQ(errorOf(snapshotFromJSON(each.json)), each.error);
  EXPECT_EQ(errorOf(deviceSettingsFromJSON(with(device, "volumeMode", gone))),
            "\"volumeMode\" is missing");
  EXPECT_EQ(deviceSettingsFromJSON(with(device, "crossfeedLevel", -1e300)).value(),
            DeviceSettings());

  // Beyond the type of the field, and so beyond what the effect takes.
  const auto huge =
      snapshotFromJSON(with(with(snapshot, "replayGainMode", 1e300), "vinylWarmth", -1e300));
  ASSERT_TRUE(huge);
  EXPECT_EQ(huge.value().replayGainMode, std::numeric_limits<int>::max());
  EXPECT_EQ(huge.value().vinylWarmth, std::numeric_limits<float>::lowest());
}

TEST(Settings, Base64TakesOnlyWhatItWrites) {
  for (const auto& [bytes, text] : std::map<std::string, std::string>{
           {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"\xFB\xFF", "+/8="}}) {
    const std::vector<std::uint8_t> raw(bytes.begin(), bytes.end());
    EXPECT_EQ(base64::encode(raw), text);
    EXPECT_EQ(base64::decode(text), raw);
  }
  for (const char* wrong :
       {"Zg", "Zg=", "Zh==", "Zm9=", "====", "Zg==Zg==", "Zm9\xFF", "Z===", "Zm 9"}) {
    EXPECT_FALSE(base64::decode(wrong)) << wrong;
  }
}

}  // namespace
}  // namespace velorin
