// Chains in files, as they are written by hand, and the response of what they make.
#include "dsp/ChainFile.h"

#include <gtest/gtest.h>

#include <fstream>

#include "dsp/ChainResponse.h"
#include "dsp/DSPEffects.h"
#include "dsp/presets/EQPresetManager.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using enum DSPEffectType;

std::string chain(std::string_view entries, std::string_view parameters) {
  return "{\"entries\":[" + std::string(entries) + "],\"parameters\":{" + std::string(parameters) +
         "}}";
}

class ChainFiles : public testing::Test {
 protected:
  ChainFiles() {
    std::ofstream(_folder / "profiles.json") << R"({"profiles":[{"id":"a","model":"A","brand":"B",
      "form":"in-ear","source":"s","target":"t","preamp":-6,"filters":[]}]})";
    EXPECT_TRUE(_profiles.load(_folder / "profiles.json"));
  }

  /// Why it cannot be applied; "" when it was.
  std::string apply(std::string_view text) {
    const auto file = chainFileFromJSON(text);
    if (!file) return file.error().text;
    const auto fault = velorin::apply(file.value(), _effects, _presets);
    return fault ? fault->text : "";
  }

  test::TemporaryFolder _folder;
  HeadphoneProfileDatabase _profiles;
  EQPresetManager _presets{_folder / "presets"};
  DSPEffects _effects{_profiles};
};

TEST_F(ChainFiles, SetEntriesParametersAndChoices) {
  _effects.tubeWarmth.setMix(0.25);
  ASSERT_EQ(apply(R"({"entries": [
      {"effectType": "headphoneProfile"},
      {"effectType": "crossfeed", "enabled": false},
      {"effectType": "dither", "id": "1b4e28ba-2fa1-41d2-883f-0016d3cca427"}],
    "parameters": {
      "headphoneProfile": {"profile": "a"},
      "crossfeed": {"cutoffFrequency": 650, "crossfeedLevel": 0.5},
      "tubeWarmth": {"drive": 1},
      "dither": {"algorithm": "lipshitz", "targetBitDepth": 20}}})"),
            "");
  const auto& entries = _effects.entries();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].effectType, headphoneProfile);
  EXPECT_EQ(entries[0].headphoneProfileId, "a");
  EXPECT_EQ(_effects.headphoneProfile.profileId(), "a");
  EXPECT_TRUE(entries[0].enabled);
  EXPECT_FALSE(entries[1].enabled);
  EXPECT_EQ(entries[2].id, "1B4E28BA-2FA1-41D2-883F-0016D3CCA427");
  EXPECT_NE(entries[0].id, entries[1].id);
  EXPECT_EQ(_effects.crossfeed.cutoffFrequency(), 650);
  EXPECT_EQ(_effects.crossfeed.crossfeedLevel(), 0.5);
  EXPECT_EQ(_effects.dither.algorithm(), DitherDSP::Algorithm::lipshitz);
  EXPECT_EQ(_effects.dither.targetBitDepth(), 20);
  EXPECT_EQ(_effects.tubeWarmth.drive(), 1) << "outside the chain";
  EXPECT_EQ(_effects.tubeWarmth.mix(), 0.25) << "what is not set stays";
  // What the preferences hold is such a file.
  EXPECT_EQ(apply(toJSON(defaultChainConfig())), "");
  EXPECT_EQ(_effects.entries().size(), 3u);
}

TEST_F(ChainFiles, BandsComeFromAPresetOrAList) {
  ASSERT_EQ(apply(chain(R"({"effectType":"equalizer"})", R"("equalizer":{"preset":"Rock"})")), "");
  EXPECT_EQ(_effects.equalizer.bands(), _presets.preset("Rock")->bands);

  const EQBand own{1000, -4.5, 1.5, EQBand::FilterType::highShelf};
  ASSERT_EQ(_presets.savePreset("Mine", std::vector<EQBand>{own}), std::nullopt);
  const std::string list = R"("bands":[{"frequency":1000,"gain":-4.5,"q":1.5,"filterType":2}])";
  for (const std::string& how : {std::string(R"("preset":"Mine")"), list}) {
    SCOPED_TRACE(how);
    _effects.equalizer.resetBands();
    ASSERT_EQ(apply(chain(R"({"effectType":"equalizer"})", R"("equalizer":{)" + how + "}")), "");
    const auto bands = _effects.equalizer.bands();
    ASSERT_EQ(bands.size(), 31u) << "filled up with flat ones";
    EXPECT_EQ(bands[0], own);
    EXPECT_FALSE(bands[1].isActive());
    EXPECT_FALSE(_effects.equalizer.isFlat());
  }
}

TEST_F(ChainFiles, AFaultNamesItsPlaceAndChangesNothing) {
  const std::string eq = R"({"effectType":"equalizer"})";
  const std::string pre = R"({"effectType":"preAmp"})";
  const auto bands = [&](std::string_view list) {
    return chain(eq, R"("equalizer":{"bands":[)" + std::string(list) + "]}");
  };
  const std::string band = R"({"frequency":100,"gain":1,"q":1,"filterType":0})";
  std::string many = band;
  for (int i = 0; i < 31; ++i) many += "," + band;
  const std::pair<std::string, const char*> cases[] = {
      {"", "not JSON from line 1, column 1 on"},
      {"{\n \"entries\": [],\n  x}", "not JSON from line 3, column 3 on"},
      {std::string(2'000'000, '['), "not JSON from line 1, column 2000001 on"},
      {"{\"entries\":" + std::string(1'000'000, '[') + std::string(1'000'000, ']') + "}",
       "nested too deeply"},
      {"{}", "there is no list \"entries\""},
      {"{\"entries\":[],\"parametres\":{}}", "there is no \"parametres\", only entries, param"},
      {chain("7", ""), "entry 1: not an object"},
      {chain(eq + ",{}", ""), "entry 2: \"effectType\" is missing"},
      {chain(eq + R"(,{"effectType":"reverb"})", ""),
       "entry 2: there is no effect \"reverb\", only preAmp, replayGain,"},
      {chain(eq + "," + pre + "," + eq, ""), "entry 3: a second equalizer"},
      {chain(R"({"effectType":"dither","enable":false})", ""), "entry 1: there is no \"enable\""},
      {chain(R"({"effectType":"dither","enabled":0})", ""), "entry 1: \"enabled\" is not true"},
      {chain(R"({"effectType":"dither","id":"x"})", ""), "entry 1: \"id\" is not a UUID"},
      {chain(R"({"effectType":"headphoneProfile","headphoneProfileId":1})", ""),
       "entry 1: \"headphoneProfileId\" is not a text"},
      {chain(R"({"effectType":"headphoneProfile","headphoneProfileId":"x"})", ""),
       "there is no headphone profile \"x\": see"},
      {"{\"entries\":[],\"parameters\":[]}", "parameters: not an object"},
      {chain("", R"("reverb":{})"), "parameters: there is no effect \"reverb\""},
      {chain(pre, R"("preAmp":6)"), "parameters: preAmp: not an object"},
      {chain(pre, R"("preAmp":{"gain":1})"),
       "parameters: preAmp: there is no \"gain\", only gainDB"},
      {chain(pre, R"("channelSwap":{"x":1})"), "channelSwap: there is no \"x\", nothing can be"},
      {chain(pre, R"("preAmp":{"gainDB":12.5})"), "\"gainDB\" is not a number from -12 to 12 dB"},
      {chain(pre, R"("dither":{"algorithm":"loud"})"),
       "parameters: dither: \"algorithm\" is not one of tpdf, "},
      {chain(eq, R"("equalizer":{"gain":1})"), "equalizer: there is no \"gain\", only preset, b"},
      {chain(eq, R"("equalizer":{"preset":"None"})"), "no equalizer preset \"None\": see 'vel"},
      {chain(eq, R"("equalizer":{"preset":"Rock","bands":[]})"), "\"bands\" exclude each other"},
      {bands(many), "equalizer: 32 bands, where 31 are the most"},
      {bands(band + R"(,{"gain":1})"), "equalizer: band 2: \"frequency\" is missing"},
      {bands(R"({"frequency":0,"gain":1,"q":1,"filterType":0})"), "band 1: no frequency above 0"},
      {bands(R"({"frequency":1,"gain":30,"q":1,"filterType":0})"), "band 1: \"gain\" is not -12"},
      {chain(eq, R"("headphoneProfile":{"profile":"a"})"), "headphoneProfile: no entry has"},
      {chain(eq, R"("headphoneProfile":{"id":"a"})"), "there is no \"id\", only profile"},
  };
  ASSERT_EQ(apply(chain(pre, R"("preAmp":{"gainDB":-3},"equalizer":{"preset":"Rock"})")), "");
  const auto entries = _effects.entries();
  const auto rock = _effects.equalizer.bands();
  for (const auto& [text, reason] : cases) {
    const std::string told = apply(text);
    EXPECT_NE(told.find(reason), told.npos) << text.substr(0, 200) << "\n"
                                            << told << "\n"
                                            << reason;
  }
  EXPECT_EQ(_effects.entries(), entries);
  EXPECT_EQ(_effects.preAmp.gain(), -3);
  EXPECT_EQ(_effects.equalizer.bands(), rock);
}

TEST_F(ChainFiles, AFileThatCannotBeReadIsNamed) {
  std::ofstream(_folder / "bad.json") << "{";
  std::ofstream(_folder / "large.json") << std::string((4 << 20) + 1, ' ');
  for (const char* name : {"absent.json", "bad.json", "large.json", ""}) {
    const auto file = readChainFile(_folder / name);
    ASSERT_FALSE(file) << name;
    const std::string& text = file.error().text;
    EXPECT_NE(text.find(name), text.npos);
    EXPECT_EQ(text.find((_folder / name).string()), text.rfind((_folder / name).string()))
        << "named once: " << text;
  }
}

TEST_F(ChainFiles, TheResponseIsThatOfTheEffects) {
  ASSERT_EQ(apply(chain(R"({"effectType":"dither"},{"effectType":"equalizer"},
                           {"effectType":"balance"},{"effectType":"declicker","enabled":false})",
                        R"("equalizer":{"bands":[{"frequency":50,"gain":-9,"q":8,"filterType":0},
                              {"frequency":3000,"gain":6,"q":0.7,"filterType":2}]},
                           "balance":{"balance":1})")),
            "");
  const auto bands = _effects.equalizer.bands();
  for (const double rate : {44100.0, 192000.0, 8000.0}) {
    SCOPED_TRACE(rate);
    const ChainResponse response = measureResponse(_effects, rate, 60);
    ASSERT_EQ(response.points.size(), 60u);
    EXPECT_DOUBLE_EQ(response.points.front().frequency, 20);
    EXPECT_NEAR(response.points.back().frequency, std::min(20000.0, rate / 2), 5);
    for (const ResponsePoint& point : response.points) {
      const double w = 2 * std::numbers::pi * point.frequency / rate;
      const std::complex<double> z = std::polar(1.0, -w);
      double expected = 0;
      for (const EQBand& band : {bands[0], bands[1]}) {
        const auto c = band.design(rate).value();
        expected +=
            20 *
            std::log10(std::abs((c.b0 + z * (c.b1 + z * c.b2)) / (1.0 + z * (c.a1 + z * c.a2))));
      }
      EXPECT_NEAR(point.rightDB, expected, 0.02) << point.frequency;
      EXPECT_EQ(point.leftDB, -200) << "balance is all right";
    }
  }
  _effects.applyChain({{"", dither, true, {}}, {"", declicker, false, {}}});
  const ChainResponse none = measureResponse(_effects, 44100, 3);
  EXPECT_EQ(none.leftOut, std::vector{dither}) << "what is off is not worth a word";
  for (const ResponsePoint& point : none.points) EXPECT_EQ(point.leftDB, 0);
}

}  // namespace
}  // namespace velorin
