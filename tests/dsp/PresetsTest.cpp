// Equalizer presets: ours, files of the listener's own, and files that mean harm.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <set>

#include "dsp/presets/BuiltInPresets.h"
#include "dsp/presets/EQPresetManager.h"
#include "foundation/AtomicFile.h"
#include "foundation/Log.h"
#include "foundation/Unicode.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;

void write(const fs::path& file, std::string_view text) {
  std::ofstream(file, std::ios::binary) << text;
}

std::vector<std::string> namesOf(const std::vector<EQPreset>& presets) {
  std::vector<std::string> names;
  for (const EQPreset& preset : presets) names.push_back(preset.name);
  return names;
}

TEST(BuiltInPresets, AreFiftyShapesOfTheGrid) {
  const auto& presets = builtInPresets();
  ASSERT_EQ(presets.size(), 50u);
  std::set<std::string> names;
  for (const EQPreset& preset : presets) {
    EXPECT_TRUE(names.insert(preset.name).second) << preset.name;
    EXPECT_TRUE(preset.isBuiltIn);
    ASSERT_EQ(preset.bands.size(), kEQGrid.size()) << preset.name;
    for (std::size_t i = 0; i < kEQGrid.size(); ++i) {
      const EQBand& band = preset.bands[i];
      EXPECT_EQ(band, (EQBand{kEQGrid[i], band.gain, 4.318, EQBand::FilterType::peaking}));
      EXPECT_EQ(band, band.clamped());
      EXPECT_EQ(std::fmod(band.gain, 0.5), 0) << preset.name << ", band " << i + 1;
    }
  }
  EXPECT_EQ(presets[0].bands, flatBands());
  EXPECT_EQ(presets[44].name, "Sub Bass");
  EXPECT_EQ(presets[44].bands[4].gain, 5.5);
}

TEST(EQPresetManager, WhatIsSavedComesBackAndIsPlainToRead) {
  const test::TemporaryFolder folder;
  EQPresetManager manager(folder / "a/b/EQPresets");
  EXPECT_TRUE(fs::is_directory(manager.presetsDirectory()));
  const std::vector<EQBand> bands = {{31.5, -3.5, 4.318, EQBand::FilterType::peaking},
                                     {20000, 0.1, 0.1, EQBand::FilterType::highPass}};
  EXPECT_EQ(manager.savePreset("Ska/Punk", bands), std::nullopt);
  std::string failure;
  EXPECT_EQ(readFile(manager.presetsDirectory() / "Ska_Punk.json", failure), R"({
  "bands": [
    {
      "filterType": 0,
      "frequency": 31.5,
      "gain": -3.5,
      "q": 4.318
    },
    {
      "filterType": 4,
      "frequency": 20000.0,
      "gain": 0.1,
      "q": 0.1
    }
  ],
  "isBuiltIn": false,
  "name": "Ska/Punk"
})");
  EXPECT_EQ(manager.loadUserPresets(), (std::vector<EQPreset>{{"Ska/Punk", bands, false}}));
  EXPECT_EQ(manager.allPresets().size(), 51u);
  EXPECT_TRUE(manager.preset("Ska/Punk")->isBuiltIn) << "ours come first";

  // Names that come to one file.
  EXPECT_EQ(manager.savePreset("Ska:Punk", {}), std::nullopt);
  EXPECT_EQ(namesOf(manager.loadUserPresets()), std::vector<std::string>{"Ska:Punk"});
  EXPECT_EQ(manager.preset("Ska:Punk"), (EQPreset{"Ska:Punk", {}, false}));
  EXPECT_EQ(manager.preset("Nobody's"), std::nullopt);
  EXPECT_EQ(manager.deletePreset("Ska?Punk"), std::nullopt);
  EXPECT_TRUE(manager.loadUserPresets().empty());
  EXPECT_NE(manager.deletePreset("Ska?Punk")->find("Ska_Punk.json: there is no such preset"),
            std::string::npos);
}

TEST(EQPresetManager, AFileNameHoldsLettersMarksAndNumbers) {
  const std::pair<const char*, const char*> cases[] = {
      {"Rock-n_roll 2", "Rock-n_roll 2.json"},
      {"../../etc/passwd", "______etc_passwd.json"},
      {"Für Élise", "Für Élise.json"},
      {"E\u0301toile", "E\u0301toile.json"},  // a combining mark
      {"日本語 ½ Ⅷ ๓", "日本語 ½ Ⅷ ๓.json"},
      {"a\u00A0b\tc\nd", "a_b_c_d.json"},
      {"🎧 “loud” — €", "_ _loud_ _ _.json"},
      {"bad \xff\xfe", "bad __.json"},
      {"", ".json"}};
  for (const auto& [name, file] : cases) EXPECT_EQ(EQPresetManager::fileName(name), file);
}

TEST(EQPresetManager, WhatCannotBeSavedIsToldAndLosesNothing) {
  const test::TemporaryFolder folder;
  EQPresetManager manager(folder / "presets");
  ASSERT_EQ(manager.savePreset("Mine", flatBands()), std::nullopt);
  auto broken = flatBands();
  broken[3].gain = std::nan("");
  EXPECT_NE(manager.savePreset("Mine", broken), std::nullopt);
  EXPECT_NE(manager.savePreset("Mine", std::vector<EQBand>(100'000)), std::nullopt);
  EXPECT_NE(manager.savePreset("", flatBands()), std::nullopt);
  EXPECT_NE(manager.savePreset(std::string(300, 'x'), flatBands()), std::nullopt);
  EXPECT_EQ(manager.loadUserPresets(), (std::vector<EQPreset>{{"Mine", flatBands(), false}}));

  write(folder / "file", "in the way");
  EQPresetManager nowhere(folder / "file/EQPresets");
  EXPECT_NE(nowhere.savePreset("Mine", flatBands()), std::nullopt);
  EXPECT_TRUE(nowhere.loadUserPresets().empty());
  EXPECT_EQ(nowhere.allPresets().size(), 50u);
}

TEST(EQPresetManager, HandMadeFilesAreReadAsTheyAreMeant) {
  const test::TemporaryFolder folder;
  EQPresetManager manager(folder.path());
  write(folder / "whatever.json", R"( {"isBuiltIn":true,"name":"\u00c9t\u00e9","comment":[[1]],
    "bands":[{"q":1,"gain":-20,"frequency":1e3,"filterType":2.0,"note":null}]} )");
  write(folder / "other.JSON", "not ours");
  write(folder / "notes.txt", "not ours");
  const log::Capture log;
  EXPECT_EQ(
      manager.loadUserPresets(),
      (std::vector<EQPreset>{{"Été", {{1000, -20, 1, EQBand::FilterType::highShelf}}, true}}));
  EXPECT_TRUE(log.lines().empty());
}

TEST(EQPresetManager, FilesThatAreNoPresetsAreLoggedAndLeftOut) {
  const std::string band = R"({"frequency":1,"gain":0,"q":1,"filterType":0})";
  const auto preset = [](std::string_view bands) {
    return fmt::format(R"({{"name":"x","isBuiltIn":false,"bands":{}}})", bands);
  };
  std::vector<std::string> texts = {
      "", "null", "[]", "{", "\xff\xfe{}", preset("[") + "]", preset("{}"), preset("[7]"),
      preset(R"([{"frequency":NaN,"gain":0,"q":1,"filterType":0}])"),
      preset(R"([{"frequency":1e999,"gain":0,"q":1,"filterType":0}])"),
      preset(R"([{"frequency":"1","gain":0,"q":1,"filterType":0}])"),
      preset(R"([{"frequency":1,"gain":0,"filterType":0}])"),
      preset(R"([{"frequency":1,"gain":0,"q":1,"filterType":5}])"),
      preset(R"([{"frequency":1,"gain":0,"q":1,"filterType":"peaking"}])"),
      R"({"isBuiltIn":false,"bands":[]})", R"({"name":"x","bands":[]})",
      R"({"name":"x","isBuiltIn":false})", R"({"name":1,"isBuiltIn":false,"bands":[]})",
      R"({"name":"x","isBuiltIn":0,"bands":[]})", preset("[" + band + "]") + "x",
      // Deep, and deep where bands are; too large by one, though it would be a preset.
      std::string(900'000, '['), preset(std::string(300'000, '[') + std::string(300'000, ']')),
      preset("[]") + std::string(EQPresetManager::kLargestFile, ' ')};
  for (const auto& text : texts) {
    const test::TemporaryFolder folder;
    EQPresetManager manager(folder.path());
    ASSERT_EQ(manager.savePreset("Good", flatBands()), std::nullopt);
    write(folder / "bad file.json", text);
    const log::Capture log;
    EXPECT_EQ(namesOf(manager.loadUserPresets()), std::vector<std::string>{"Good"});
    EXPECT_TRUE(log.contains("Failed to load preset: bad file.json")) << text.substr(0, 80);
    EXPECT_TRUE(fs::exists(folder / "bad file.json"));
  }
  const test::TemporaryFolder folder;
  EQPresetManager manager(folder.path());
  fs::create_directory(folder / "folder.json");
  fs::create_symlink("nowhere", folder / "link.json");
  ASSERT_EQ(::mkfifo((folder / "pipe.json").c_str(), 0600), 0);
  const log::Capture log;
  EXPECT_TRUE(manager.loadUserPresets().empty());
  for (const char* name : {"folder", "link", "pipe"}) {
    EXPECT_TRUE(log.contains(fmt::format("Failed to load preset: {}.json", name)));
  }
}

TEST(EQPresetManager, TheyAreSortedByNameWhateverTheCase) {
  const test::TemporaryFolder folder;
  EQPresetManager manager(folder.path());
  const std::vector<std::string> sorted = {"aaa", "Abc", "aC0000", "AC2999", "b", "ZEBRA"};
  for (const auto& name : sorted) {
    write(folder / EQPresetManager::fileName(name), toJSON({name, {}, false}));
  }
  EXPECT_EQ(namesOf(manager.loadUserPresets()), sorted);
}

TEST(Unicode, LowercaseOfEveryScript) {
  const std::pair<const char*, const char*> cases[] = {
      {"HD 600", "hd 600"}, {"ÀÞÿ", "àþÿ"}, {"ŽLUŤ", "žluť"}, {"ΣΟΦΌΣ", "σοφόσ"},
      {"МОСКВА", "москва"}, {"Ǆǅǆ", "ǆǆǆ"}, {"İ", "i̇"},       {"ẞ", "ß"},
      {"Ⴀ", "ⴀ"},           {"𐐀", "𐐨"},     {"日本", "日本"}, {"×÷", "×÷"},
      {"a\xff", "a\uFFFD"}, {"", ""}};
  for (const auto& [text, lower] : cases) EXPECT_EQ(unicode::lowercased(text), lower);
}

}  // namespace
}  // namespace velorin
