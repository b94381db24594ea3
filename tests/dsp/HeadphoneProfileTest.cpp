// Headphone profiles: the effect, the database and its files, and the texts that are imported.
#include "dsp/effects/HeadphoneProfileDSP.h"

#include <gtest/gtest.h>

#include <fstream>

#include "dsp/AnalogueFilter.h"
#include "dsp/EffectHarness.h"
#include "dsp/presets/HeadphoneProfileDatabase.h"
#include "foundation/AtomicFile.h"
#include "foundation/Log.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using test::noise;
using test::Signal;
using Type = PEQFilterType;

constexpr double kRate = 48000;

HeadphoneProfile profileOf(double preamp, std::vector<PEQFilter> filters) {
  HeadphoneProfile profile;
  profile.id = "one";
  profile.model = "Model One";
  profile.preamp = preamp;
  profile.filters = std::move(filters);
  return profile;
}

struct ReadyEffect : HeadphoneProfileDSP {
  explicit ReadyEffect(const HeadphoneProfile& profile, std::size_t channels = 2,
                       double rate = kRate) {
    setEnabled(true);
    loadProfile(profile, rate, channels);
  }
};

bool passesDry(HeadphoneProfileDSP& effect, std::size_t channels = 2, double rate = kRate) {
  return test::passesDry(effect, rate, channels);
}

Signal scaled(Signal signal, float factor) {
  for (auto& channel : signal) {
    for (float& sample : channel) sample *= factor;
  }
  return signal;
}

const HeadphoneProfile kCorrection = profileOf(-6, {{Type::lowShelf, 105, 4.5, 0.7},
                                                    {Type::peaking, 3000, -5, 2},
                                                    {Type::highShelf, 10000, 3, 0.7}});

TEST(HeadphoneProfileDSP, ResponseIsThatOfPreampAndCircuits) {
  const EQBand circuits[] = {{105, 4.5, 0.7, EQBand::FilterType::lowShelf},
                             {3000, -5, 2, EQBand::FilterType::peaking},
                             {10000, 3, 0.7, EQBand::FilterType::highShelf}};
  for (const double rate : test::kRates) {
    ReadyEffect effect(kCorrection, 1, rate);
    const auto expected = [&](double f) {
      double magnitude = std::pow(10.0, kCorrection.preamp / 20);
      for (const EQBand& band : circuits) magnitude *= test::analogueMagnitude(band, f, rate);
      return magnitude;
    };
    EXPECT_LT(test::responseErrorDB(effect, rate, 0.25, expected), 1.7e-4) << rate;
  }
}

TEST(HeadphoneProfileDSP, PreampAppliesWithOrWithoutFilters) {
  const float gain = std::pow(10.0f, -6.0f / 20.0f);
  const Signal in = noise(2, 1000);
  ReadyEffect bare(profileOf(-6, {}));
  EXPECT_TRUE(test::identical(test::run(bare, in, kRate), scaled(in, gain)));
  // A filter of 0 dB runs and changes nothing that can be heard.
  ReadyEffect unit(profileOf(-6, {{Type::peaking, 1000, 0, 1}}));
  EXPECT_LT(test::largestDifference(test::run(unit, in, kRate), scaled(in, gain)), 1e-7);
}

TEST(HeadphoneProfileDSP, PassesDryWithoutAProfileOrInAnotherFormat) {
  HeadphoneProfileDSP none;
  none.setEnabled(true);
  none.configure(kRate, 2);
  EXPECT_TRUE(passesDry(none));
  EXPECT_EQ(none.profileId(), std::nullopt);

  ReadyEffect effect(kCorrection, 2, 44100);
  EXPECT_EQ(effect.profileModel(), "Model One");
  EXPECT_FALSE(passesDry(effect, 2, 44101));
  EXPECT_TRUE(passesDry(effect, 2, 96000)) << "the preamp waits too";
  for (const std::size_t channels : {2u, 32u, 33u}) {
    effect.configure(96000, channels);
    EXPECT_EQ(passesDry(effect, channels, 96000), channels == 33) << channels;
  }
  effect.configure(kRate, 2);
  EXPECT_FALSE(passesDry(effect));
  EXPECT_TRUE(passesDry(effect, 3));
  effect.clearProfile();
  EXPECT_TRUE(passesDry(effect));
  EXPECT_EQ(effect.profileId(), std::nullopt);
}

TEST(HeadphoneProfileDSP, FiltersThatCannotBeHadAreLeftOutAndNamed) {
  const auto filters = std::vector<PEQFilter>{{Type::peaking, 24000, 6, 1},
                                              kCorrection.filters[1],
                                              {Type::peaking, 1000, 6, 0},
                                              {Type::lowShelf, -5, 6, 1},
                                              {Type::highShelf, 1000, 1e6, 1}};
  ReadyEffect effect(profileOf(1e9, filters));  // nor can such a gain
  EXPECT_EQ(effect.unusableFilters(), (std::vector<int>{0, 2, 3, 4}));
  ReadyEffect usable(profileOf(0, {kCorrection.filters[1]}));
  const Signal in = noise(2, 3000);
  EXPECT_TRUE(test::identical(test::run(effect, in, kRate), test::run(usable, in, kRate)));
  effect.configure(96000, 2);
  EXPECT_EQ(effect.unusableFilters(), (std::vector<int>{2, 3, 4}));
}

// The database

class HeadphoneDatabase : public ::testing::Test {
 protected:
  bool load(std::string_view text) {
    std::ofstream(_folder / "profiles.json", std::ios::binary) << text;
    return _database.load(_folder / "profiles.json");
  }
  std::vector<std::string> found(std::string_view query) const {
    std::vector<std::string> models;
    for (const auto& profile : _database.search(query)) models.push_back(profile->model);
    return models;
  }
  static std::string entry(std::string_view id, std::string_view model, std::string_view brand,
                           std::string_view filters = "[]") {
    return fmt::format(R"({{"id":"{}","model":"{}","brand":"{}","form":"in-ear","source":"s",)"
                       R"("target":"t","preamp":-6,"filters":{}}})",
                       id, model, brand, filters);
  }

  const test::TemporaryFolder _folder;
  HeadphoneProfileDatabase _database;
};

TEST_F(HeadphoneDatabase, SearchesAndLooksUp) {
  EXPECT_TRUE(_database.search("").empty());
  EXPECT_FALSE(_database.isLoaded());
  ASSERT_TRUE(load(
      fmt::format(R"({{"made":[{{"x":1}}],"profiles":[{},{},{},{}],"more":{{"profiles":[]}}}})",
                  entry("a", "HD600", "S",
                        R"([{"type":"PK","fc":105,"gain":-2.5,"q":0.7,"n":[]},)"
                        R"({"type":"HSC","fc":1e4,"gain":0,"q":1}])"),
                  entry("b", "hd 600", "S"), entry("a", "ÜBER One", "Ü"), entry("c", "", "S"))));
  EXPECT_TRUE(_database.isLoaded());
  EXPECT_EQ(found(""), (std::vector<std::string>{"HD600", "hd 600", "ÜBER One", ""}));
  EXPECT_EQ(found("HD"), (std::vector<std::string>{"HD600", "hd 600"}));
  EXPECT_EQ(found("über"), std::vector<std::string>{"ÜBER One"});
  EXPECT_TRUE(found("nothing").empty());
  EXPECT_EQ(_database.profile("a")->model, "ÜBER One") << "the later one of an id";
  EXPECT_EQ(_database.profile("z"), nullptr);
  const auto brands = _database.profilesByBrand();
  ASSERT_EQ(brands.size(), 2u);
  EXPECT_EQ(brands.at("S").size(), 3u);
  EXPECT_EQ(*brands.at("S")[0],
            (HeadphoneProfile{"a",
                              "HD600",
                              "S",
                              HeadphoneForm::inEar,
                              "s",
                              "t",
                              -6,
                              {{Type::peaking, 105, -2.5, 0.7}, {Type::highShelf, 1e4, 0, 1}}}));
}

TEST_F(HeadphoneDatabase, AFileThatIsNotOfTheFormFailsAsAWhole) {
  const std::string good = entry("a", "A", "B", R"([{"type":"PK","fc":1,"gain":1,"q":1}])");
  const auto bundle = [](std::string_view profiles) {
    return fmt::format(R"({{"profiles":[{}]}})", profiles);
  };
  const auto with = [&](std::string_view what, std::string_view instead) {
    std::string text = bundle(good + "," + good);
    text.replace(text.rfind(what), what.size(), instead);
    return text;
  };
  ASSERT_TRUE(load(bundle(good)));
  const std::pair<std::string, const char*> cases[] = {
      {"", "not JSON"},
      {"[]", "an object was expected"},
      {"{}", "\"profiles\" is missing"},
      {R"({"profiles":{}})", "\"profiles\" is not an array"},
      {bundle("7"), "an entry of \"profiles\" is not an object"},
      {bundle(good) + "]", "not JSON"},
      {bundle(good + ",{}"), "profile 2: \"id\" is missing"},
      {with(R"("model":"A",)", ""), "profile 2: \"model\" is missing"},
      {with(R"("target":"t")", R"("target":null)"), "profile 2: \"target\" is not a text"},
      {with("-6", "\"-6\""), "profile 2: \"preamp\" is not a number"},
      {with("-6", "NaN"), "not JSON"},
      {with("-6", "1e999"), "not JSON"},
      {with("in-ear", "on-ear"), "profile 2: \"form\" has the unknown value \"on-ear\""},
      {with("PK", "LP"), "profile 2: \"type\" has the unknown value \"LP\""},
      {with(R"("q":1)", R"("q":true)"), "profile 2: \"q\" is not a number"},
      {with(R"("fc":1,)", ""), "profile 2: \"fc\" is missing"},
      {with(R"([{"type":"PK","fc":1,"gain":1,"q":1}])", "{}"),
       "profile 2: \"filters\" is not an array"},
      {bundle(good).substr(0, 60), "not JSON"},
      {bundle(std::string(2'000'000, '[')), "nested too deeply"},
      {std::string(2'000'000, '['), "nested too deeply"},
  };
  for (const auto& [text, reason] : cases) {
    const log::Capture log;
    EXPECT_FALSE(load(text)) << text.substr(0, 200);
    EXPECT_TRUE(log.contains(fmt::format("Failed to decode headphone profiles JSON: {}", reason)))
        << reason << ", but: " << (log.lines().empty() ? "nothing" : log.lines()[0]);
    EXPECT_EQ(found("").size(), 1u) << "what was loaded before stays";
  }
  const log::Capture log;
  EXPECT_FALSE(_database.load(_folder / "absent.json"));
  EXPECT_FALSE(_database.load(_folder.path()));
  ASSERT_EQ(log.lines().size(), 2u);
  for (const auto& line : log.lines()) {
    EXPECT_NE(line.find("Failed to read headphone-profiles.json: "), std::string::npos) << line;
  }
}

TEST_F(HeadphoneDatabase, WhatComesWithTheProgramIsFoundAndCanBePlayed) {
  ASSERT_TRUE(_database.load()) << "resources/headphone-profiles.json beside the tests";
  const auto profiles = _database.search("");
  EXPECT_GE(profiles.size(), 6u);
  for (const auto& profile : profiles) {
    EXPECT_EQ(_database.profile(profile->id), profile) << "ids are unique";
    ReadyEffect effect(*profile, 2, 44100);
    EXPECT_TRUE(effect.unusableFilters().empty()) << profile->model;
    // No correction may clip what did not clip before.
    for (const double f : {20.0, 60.0, 120.0, 1000.0, 3000.0, 9000.0, 15000.0, 20000.0}) {
      double gain = std::pow(10.0, profile->preamp / 20);
      for (const PEQFilter& filter : profile->filters) {
        gain *= std::abs(biquad::response(*filter.design(44100), 44100, f));
      }
      EXPECT_LE(gain, 1.0 + 1e-9) << profile->model << " at " << f;
    }
  }
  ::setenv("VELORIN_RESOURCES", _folder.path().c_str(), 1);
  std::ofstream(_folder / HeadphoneProfileDatabase::kFileName) << R"({"profiles":[]})";
  EXPECT_TRUE(_database.load());
  EXPECT_TRUE(found("").empty());
  ::unsetenv("VELORIN_RESOURCES");
}

// The importer

class HeadphoneImport : public HeadphoneDatabase {
 protected:
  void text(const std::filesystem::path& name, std::string_view content) {
    std::filesystem::create_directories((_folder / name).parent_path());
    std::ofstream(_folder / name, std::ios::binary) << content;
  }
  std::string import(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"python3", VELORIN_IMPORTER, "-o", out().string()});
    return test::runProgram(arguments, std::chrono::seconds(60));
  }
  std::filesystem::path out() const { return _folder / "out/profiles.json"; }
  std::string in(std::string_view name) const { return (_folder / name).string(); }
};

TEST_F(HeadphoneImport, UnderstandsTheUsualTexts) {
  text("lab/in-ear/Acme Nine/Acme Nine ParametricEQ.txt",
       "\xEF\xBB\xBFPreamp: -6.2 dB\r\nFilter 1: ON PK Fc 105 Hz Gain -2.7 dB Q 0.70\r\n"
       "Filter 2: ON LSC Fc 1,050 Hz Gain 5.5 dB Q 0.71\r\nFilter 3: OFF PK Fc 10 Hz Gain 1 dB Q "
       "1\r\n"
       "Filter 4: ON HS Fc 10000 Hz Gain -1.5 dB\r\nFilter 5: ON None\r\n");
  text("lab/in-ear/Acme Nine/Acme Nine FixedBandEQ.txt", "Preamp: -1 dB\n");
  text("Commas.txt",
       "# made by hand\npreamp: -3,5 dB\n\nFilter: ON PEQ Fc 1,5 kHz Gain −2,25 dB Q 1,41\n"
       "filter 2: on ls 12 dB fc 90 hz gain +3 db\nFilter 3: ON PK Fc 500 Hz Gain 1 BW Oct 1\n");
  ASSERT_NE(import({in("lab"), in("Commas.txt"), "--target", "Flat"}).find("2 new, 0 replaced"),
            std::string::npos);
  ASSERT_TRUE(_database.load(out()));
  EXPECT_EQ(*_database.profile("acme-nine-lab"),
            (HeadphoneProfile{"acme-nine-lab",
                              "Acme Nine",
                              "Acme",
                              HeadphoneForm::inEar,
                              "lab",
                              "Flat",
                              -6.2,
                              {{Type::peaking, 105, -2.7, 0.7},
                               {Type::lowShelf, 1050, 5.5, 0.71},
                               {Type::highShelf, 10000, -1.5, 0.707}}}));
  const auto commas = _database.profile("commas-unknown");
  ASSERT_TRUE(commas);
  EXPECT_EQ(commas->preamp, -3.5);
  ASSERT_EQ(commas->filters.size(), 3u);
  EXPECT_EQ(commas->filters[0], (PEQFilter{Type::peaking, 1500, -2.25, 1.41}));
  EXPECT_NEAR(commas->filters[1].q, std::sqrt(0.5), 1e-12) << "12 dB per octave is S = 1";
  EXPECT_NEAR(commas->filters[2].q, std::sqrt(2.0), 1e-12) << "an octave";
}

TEST_F(HeadphoneImport, TellsWhatItLeavesOutAndWhere) {
  text("Odd.txt",
       "Preamp: -1 dB\nFilter 1: ON LP Fc 100 Hz\nChannel: L\nFilter 2: ON PK Fc x Hz Gain 1 dB Q "
       "1\n"
       "Filter 3: ON PK Fc 100 Hz Gain 99 dB Q 1\nFilter 4: ON PK Fc 100 Hz Gain 1 dB\n"
       "Filter 5: ON PK Fc 100 Hz Gain 1.5 dB Q 1\nPreamp: -2 dB\n"
       "Filter 6: ON PK Fc 1.2.3 Hz Gain 1 dB Q 1\n");
  text("Notes.txt", "Bought in May.\n");
  const std::string said = import({in("Odd.txt"), in("Notes.txt")});
  for (const char* line :
       {"Odd.txt:2: a filter of this type", "Odd.txt:3: not understood",
        "Odd.txt:4: not understood", "Odd.txt:5: gain 99 is not within", "Odd.txt:6: no Q",
        "Odd.txt:8: a second preamp", "Odd.txt:9: frequency '1.2.3' is not a number",
        "Notes.txt: left out: no equalizer", "1 new, 0 replaced, 1 left out; 1 profiles"}) {
    EXPECT_NE(said.find(line), std::string::npos) << line << " is not in\n" << said;
  }
  ASSERT_TRUE(_database.load(out()));
  EXPECT_EQ(_database.profile("odd-unknown")->filters,
            (std::vector<PEQFilter>{{Type::peaking, 100, 1.5, 1}}));
}

TEST_F(HeadphoneImport, MergesAndNeverSpoilsAFile) {
  text("out/profiles.json", fmt::format(R"({{"profiles":[{},{}],"note":"kept"}})",
                                        entry("m-s", "old", "Big Brand"), entry("z", "Z", "Z")));
  text("Big Brand X.txt", "Preamp: 0 dB\n");
  import({in("Big Brand X.txt"), "--source", "S", "--form", "earbud"});
  import({in("Big Brand X.txt"), "--id", "m-s", "--model", "M"});
  ASSERT_TRUE(_database.load(out()));
  EXPECT_EQ(found(""), (std::vector<std::string>{"M", "Z", "Big Brand X"}));
  EXPECT_EQ(_database.profile("big-brand-x-s")->brand, "Big Brand");
  EXPECT_EQ(_database.profile("big-brand-x-s")->form, HeadphoneForm::earbud);
  std::string failure;
  EXPECT_NE(readFile(out(), failure)->find("\"note\": \"kept\""), std::string::npos);

  const std::string_view foreign = "{\"profiles\": 3}";
  text("out/profiles.json", foreign);
  EXPECT_NE(import({in("Big Brand X.txt")}).find("not a file of headphone profiles"),
            std::string::npos);
  EXPECT_EQ(readFile(out(), failure), foreign);
  const auto status = [&](const std::string& rest) {
    const int code = std::system(
        fmt::format("python3 '{}' -o '{}' {} >/dev/null 2>&1", VELORIN_IMPORTER, in("o.json"), rest)
            .c_str());
    return WIFEXITED(code) ? WEXITSTATUS(code) : -1;
  };
  const std::string good = "'" + in("Big Brand X.txt") + "'";
  EXPECT_EQ(status(good), 0);
  EXPECT_EQ(status(good + " /dev/null"), 1);
  EXPECT_EQ(status("/dev/null"), 1);
  EXPECT_EQ(status(good + " -o /dev/null/x.json"), 1);
  EXPECT_EQ(status("/nowhere.txt"), 2);
  EXPECT_EQ(status(good + " --form loudspeaker"), 2);
  EXPECT_EQ(status(good + " " + good + " --model M"), 2);
}

}  // namespace
}  // namespace velorin
