// The chain as it is stored, and the effects that it switches and orders.
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "EffectHarness.h"
#include "dsp/DSPEffects.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using enum DSPEffectType;

constexpr const char* kId = "1B4E28BA-2FA1-41D2-883F-0016D3CCA427";

DSPChainEntry entry(DSPEffectType type, bool enabled = true,
                    std::optional<std::string> profile = std::nullopt) {
  return {kId, type, enabled, std::move(profile)};
}

TEST(DSPEffectType, EachHasNamesOfItsOwnAndAnEffectThatReportsThem) {
  DSPEffects effects;
  std::set<std::string_view> ids, badges, displayNames;
  for (const DSPEffectType type : allEffectTypes()) {
    const EffectNames& names = namesOf(type);
    SCOPED_TRACE(names.rawValue);
    EXPECT_EQ(effectType(names.rawValue), type);
    EXPECT_EQ(effects.effect(type).type(), type);
    EXPECT_TRUE(ids.insert(names.id).second);
    EXPECT_TRUE(badges.insert(names.badge).second);
    EXPECT_TRUE(displayNames.insert(names.displayName).second);
  }
  EXPECT_EQ(ids.size(), 18u);
}

TEST(DSPChainConfig, ComesBackAsItWasStored) {
  DSPChainConfig config{{entry(headphoneProfile, true, "hd650"), entry(dither, false)}};
  EXPECT_EQ(toJSON(config),
            R"({"entries":[{"id":"1B4E28BA-2FA1-41D2-883F-0016D3CCA427",)"
            R"("effectType":"headphoneProfile","enabled":true,"headphoneProfileId":"hd650"},)"
            R"({"id":"1B4E28BA-2FA1-41D2-883F-0016D3CCA427","effectType":"dither",)"
            R"("enabled":false}]})");
  config.entries[0].headphoneProfileId = "Grüße \"\\\n\x01 🎧";
  EXPECT_EQ(chainConfigFromJSON(toJSON(config)), config);
  config.entries[0].headphoneProfileId = "\xff";
  EXPECT_EQ(chainConfigFromJSON(toJSON(config))->entries[0].headphoneProfileId, "\uFFFD");
}

TEST(DSPChainConfig, IsReadAsOthersWriteIt) {
  const auto config = chainConfigFromJSON(R"( { "version": 7, "entries" : [
    {"enabled": false, "new": [1], "effectType": "crossfeed",
     "headphoneProfileId": null, "id": "1b4e28ba-2fa1-41d2-883f-0016d3cca427"} ] } )");
  EXPECT_EQ(config, (DSPChainConfig{{entry(crossfeed, false)}}));
}

TEST(DSPChainConfig, WhatIsNotWholeIsDiscardedAsAWhole) {
  const std::string good = toJSON(DSPChainConfig{{entry(preAmp), entry(dither)}});
  ASSERT_TRUE(chainConfigFromJSON(good));
  const auto with = [&](std::string_view what, std::string_view instead) {
    std::string text = good;
    const std::size_t at = text.rfind(what);
    EXPECT_NE(at, text.npos) << what;
    return text.replace(at, what.size(), instead);
  };
  const std::string cases[] = {
      "",
      "null",
      "[]",
      "{}",
      "{\"entries\":{}}",
      "{\"entries\":[7]}",
      good + "x",
      good.substr(0, good.size() - 1),
      with("dither", "reverb"),
      with("dither", "Dither"),
      with("\"dither\"", "10"),
      with("dither", "preAmp"),
      with("\"effectType\":\"dither\",", ""),
      with(",\"enabled\":true", ""),
      with("\"enabled\":true", "\"enabled\":1"),
      with("\"id\":\"1B4E28BA-2FA1-41D2-883F-0016D3CCA427\",", ""),
      with("1B4E28BA-2FA1", "1B4E28BA02FA1"),
      with("A427", "A42G"),
      with("\"1B4E28BA-2FA1-41D2-883F-0016D3CCA427\"", "1"),
      with("true}", "true,\"headphoneProfileId\":5}"),
      with("dither", "\xff"),
      std::string(1'000'000, '['),
  };
  for (const std::string& text : cases) {
    EXPECT_EQ(chainConfigFromJSON(text), std::nullopt) << text.substr(0, 300);
  }
}

std::vector<std::pair<DSPEffectType, bool>> shapeOf(const DSPChainConfig& config) {
  std::vector<std::pair<DSPEffectType, bool>> shape;
  std::set<std::string> ids;
  for (const DSPChainEntry& each : config.entries) {
    shape.emplace_back(each.effectType, each.enabled);
    EXPECT_TRUE(ids.insert(each.id).second) << "ids are new ones";
    EXPECT_EQ(each.headphoneProfileId, std::nullopt);
  }
  return shape;
}

TEST(DSPChainConfig, WithoutAStoredOneTheSwitchesMakeIt) {
  using Shape = std::vector<std::pair<DSPEffectType, bool>>;
  const Shape off = {{replayGain, false}, {equalizer, false}, {dither, false}};
  EXPECT_EQ(shapeOf(defaultChainConfig()), off);
  EXPECT_EQ(shapeOf(chainOfSwitches([](DSPEffectType) { return false; })), off);
  EXPECT_EQ(shapeOf(chainOfSwitches([](DSPEffectType type) {
              return type == equalizer || type == crossfeed || type == headphoneProfile;
            })),
            (Shape{{replayGain, false}, {equalizer, true}, {dither, false}, {crossfeed, true}}));
  const Shape all = shapeOf(chainOfSwitches([](DSPEffectType) { return true; }));
  EXPECT_EQ(all.size(), 17u) << "all but the headphone profile";
  EXPECT_TRUE(chainConfigFromJSON(toJSON(chainOfSwitches([](DSPEffectType) { return true; }))));
}

class Effects : public testing::Test {
 protected:
  Effects() {
    std::ofstream(_folder / "profiles.json") << R"({"profiles":[
      {"id":"a","model":"A","brand":"B","form":"in-ear","source":"s","target":"t","preamp":-6,
       "filters":[]},
      {"id":"b","model":"B","brand":"B","form":"in-ear","source":"s","target":"t","preamp":-12,
       "filters":[{"type":"PK","fc":1000,"gain":6,"q":1}]}]})";
    EXPECT_TRUE(_profiles.load(_folder / "profiles.json"));
  }

  std::vector<DSPProcessor*> members(std::initializer_list<DSPEffectType> types) {
    std::vector<DSPProcessor*> list;
    for (const DSPEffectType type : types) list.push_back(&_effects.effect(type));
    return list;
  }

  test::TemporaryFolder _folder;
  HeadphoneProfileDatabase _profiles;
  DSPEffects _effects{_profiles};
};

TEST_F(Effects, AChainSetsOrderAndSwitchesOfItsMembersAlone) {
  _effects.applyChain({entry(dither), entry(crossfeed, false), entry(preAmp)});
  EXPECT_EQ(_effects.chain.processors(), members({dither, crossfeed, preAmp}));
  EXPECT_TRUE(_effects.dither.isEnabled());
  EXPECT_FALSE(_effects.crossfeed.isEnabled());

  const std::vector<DSPChainEntry> next = {entry(preAmp, false), entry(crossfeed)};
  _effects.applyChain(next);
  EXPECT_EQ(_effects.entries(), next);
  EXPECT_EQ(_effects.chain.processors(), members({preAmp, crossfeed}));
  EXPECT_TRUE(_effects.dither.isEnabled()) << "out of the chain, it keeps its switch";
  EXPECT_FALSE(_effects.preAmp.isEnabled());
}

TEST_F(Effects, AProfileIsLookedUpOnceAndKeptWhenUnknown) {
  const auto applied = [&](std::optional<std::string> id) {
    _effects.applyChain({entry(headphoneProfile, true, std::move(id))});
    return _effects.headphoneProfile.profileId().value_or("none");
  };
  EXPECT_EQ(applied("lost"), "none");
  EXPECT_EQ(applied("a"), "a");
  EXPECT_EQ(applied("lost"), "a");
  EXPECT_EQ(applied("b"), "b");
  // Loaded for the rate of the last format, so the first block of it is filtered.
  _effects.formatChanged(96000, 2);
  EXPECT_EQ(applied("a"), "a");
  const test::Signal in = test::noise(2, 64);
  const test::Signal out = test::run(_effects.headphoneProfile, in, 96000);
  EXPECT_NEAR(out[0][5], in[0][5] * std::pow(10, -6 / 20.0), 1e-6);
}

TEST_F(Effects, AFormatReachesTheThreeThatDesignAloneAndTheMembersOfTheChain) {
  _effects.equalizer.setBands(std::vector<EQBand>(31, {1000, 1, 1, EQBand::FilterType::peaking}));
  _effects.applyChain({entry(headphoneProfile, true, "b"), entry(subsonicFilter)});
  for (const DSPEffectType type : allEffectTypes()) _effects.effect(type).setEnabled(true);
  const test::Signal in = test::noise(2, 512);
  const auto working = [&] {
    std::vector<DSPEffectType> types;
    for (const DSPEffectType type :
         {crossfeed, equalizer, headphoneProfile, subsonicFilter, riaaVinylCurve}) {
      if (!test::identical(test::run(_effects.effect(type), in, 96000), in)) types.push_back(type);
    }
    return types;
  };
  _effects.formatChanged(96000, 2);
  const std::vector<DSPEffectType> told = {crossfeed, equalizer, headphoneProfile, subsonicFilter};
  EXPECT_EQ(working(), told) << "crossfeed and equalizer are not in the chain";
  _effects.formatChanged(0, 0);  // no format: what was known stays
  EXPECT_EQ(working(), told);
  // What joins the chain while the stream runs works at once.
  _effects.applyChain(
      {entry(headphoneProfile, true, "b"), entry(subsonicFilter), entry(riaaVinylCurve)});
  _effects.riaaVinylCurve.setEnabled(true);
  _effects.subsonicFilter.setEnabled(true);
  EXPECT_EQ(working(),
            (std::vector{crossfeed, equalizer, headphoneProfile, subsonicFilter, riaaVinylCurve}));
}

TEST_F(Effects, HeadroomIsTheSumOfWhatIsOn) {
  Track track{};
  track.replayGainTrackGain = 4;
  track.replayGainAlbumGain = -3;
  _effects.preAmp.setGain(3);
  std::vector<EQBand> bands = flatBands();
  bands[3].gain = 5;
  bands[9].gain = -9;
  _effects.equalizer.setBands(bands);
  _effects.loudnessCompensation.setMaxBassBoostDB(10);
  _effects.loudnessCompensation.setMaxTrebleBoostDB(4);
  _effects.loudnessCompensation.setReferenceLevel(0.8);
  _effects.loudnessCompensation.setVolume(0.4);  // half of the boost
  _effects.stereoWidener.setWidth(1.5);
  struct Case {
    std::vector<DSPEffectType> enabled;
    double expected;
  };
  const Case cases[] = {
      {{}, 0},
      {{crossfeed, dither, tubeWarmth, headphoneProfile}, 0},
      {{loudnessCompensation}, 10 * _effects.loudnessCompensation.boostFactor()},
      {{stereoWidener}, 20 * std::log10(1.25)},
      {{preAmp, equalizer, replayGain, stereoWidener}, 12 + 20 * std::log10(1.25)},
  };
  for (const Case& each : cases) {
    for (const DSPEffectType type : allEffectTypes()) {
      _effects.effect(type).setEnabled(std::ranges::count(each.enabled, type) > 0);
    }
    EXPECT_NEAR(_effects.requiredHeadroomDB(&track), each.expected, 1e-5);
  }
  EXPECT_GT(_effects.loudnessCompensation.boostFactor(), 0);

  // What takes away makes no room for what adds.
  _effects.preAmp.setGain(-8);
  _effects.stereoWidener.setWidth(0.5);
  EXPECT_NEAR(_effects.requiredHeadroomDB(&track), 9, 1e-5);
  EXPECT_NEAR(_effects.requiredHeadroomDB(nullptr), 5, 1e-5);
  _effects.replayGain.setMode(ReplayGainDSP::Mode::album);
  EXPECT_NEAR(_effects.requiredHeadroomDB(&track), 5, 1e-5);
}

}  // namespace
}  // namespace velorin
