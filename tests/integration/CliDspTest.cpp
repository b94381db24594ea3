// `velorin dsp`, and chains in `velorin render`: what the effects are told to do is what is in the
// file, and nothing else.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "Program.h"
#include "dsp/DSPEffectType.h"
#include "dsp/effects/EqualizerDSP.h"
#include "support/FlacFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

bool isOneLine(const std::string& text) {
  return text.starts_with("velorin: ") && std::ranges::count(text, '\n') == 1 &&
         text.back() == '\n';
}

std::string bytesOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

json jsonOf(const std::vector<std::string>& arguments) {
  const Outcome outcome = run(arguments);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  return json::parse(outcome.out);
}

TEST(CliDsp, ListsTellWhatThereIs) {
  const json effects = jsonOf({"dsp", "list", "--json"});
  ASSERT_EQ(effects.size(), 18u);
  const std::string text = run({"dsp", "list"}).out;
  for (std::size_t i = 0; i < effects.size(); ++i) {
    EXPECT_EQ(effects[i]["effectType"], namesOf(allEffectTypes()[i]).rawValue);
    EXPECT_NE(text.find('\n' + effects[i]["effectType"].get<std::string>() + ' '), text.npos);
    for (const json& parameter : effects[i]["parameters"]) {
      EXPECT_NE(text.find("\n  " + parameter["name"].get<std::string>() + ' '), text.npos);
      if (parameter.contains("takes")) {
        EXPECT_FALSE(parameter["takes"].get<std::string>().empty());
      } else if (parameter.contains("choices")) {
        EXPECT_NE(std::ranges::find(parameter["choices"], json{{"name", parameter["default"]}}),
                  parameter["choices"].end());
      } else {
        EXPECT_GE(parameter["default"], parameter["minimum"]);
        EXPECT_LE(parameter["default"], parameter["maximum"]);
      }
    }
  }
  for (std::size_t from = 0; from < text.size();) {
    const std::size_t end = text.find('\n', from);
    EXPECT_LE(end - from, 80u) << text.substr(from, end - from);
    from = end + 1;
  }
  const json presets = jsonOf({"dsp", "presets", "--json"});
  ASSERT_GE(presets.size(), 50u);
  EXPECT_EQ(presets[0]["name"], "Flat");
  EXPECT_EQ(presets[0]["bands"].size(), 31u);
  const json profiles = jsonOf({"dsp", "profiles", "--json"});
  ASSERT_FALSE(profiles.empty());
  const std::string profileText = run({"dsp", "profiles"}).out;
  for (const json& profile : profiles) {
    EXPECT_NE(profileText.find(profile["id"].get<std::string>()), profileText.npos);
  }
}

TEST(CliDsp, AReaderThatGoesAwayIsNoBug) {
  const Outcome outcome =
      runTool({"sh", "-c", "\"$0\" dsp list --json 2>&1 >/dev/full", VELORIN_PROGRAM});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_NE(outcome.out.find("output cannot be written"), std::string::npos) << outcome.out;
  EXPECT_EQ(outcome.out.find("bug"), std::string::npos);
}

/// A file "chain.json", and renderings with and without it.
class CliChain : public testing::Test {
 protected:
  std::string chain(std::string_view text) {
    const fs::path path = _folder / "chain.json";
    std::ofstream(path) << text;
    return path;
  }

  json response(std::string_view text, std::vector<std::string> more = {}) {
    std::vector<std::string> arguments = {"dsp", "response", "--json", "--chain", chain(text)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return jsonOf(arguments);
  }

  /// The samples of the rendered file, of `Number`s.
  template <class Number>
  std::vector<Number> rendered(std::vector<std::string> more) {
    const fs::path out = _folder / "out.wav";
    std::vector<std::string> arguments = {"render", _folder / "a.flac", "-o", out};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    const std::string bytes = bytesOf(out);
    const std::size_t data = bytes.find("data");
    EXPECT_NE(data, bytes.npos);
    if (data == bytes.npos) return {};
    std::vector<Number> samples((bytes.size() - data - 8) / sizeof(Number));
    std::memcpy(samples.data(), bytes.data() + data + 8, samples.size() * sizeof(Number));
    return samples;
  }

  void make(const FlacRecipe& recipe) { FlacFixture::make(recipe).write(_folder / "a.flac"); }

  TemporaryFolder _folder;
};

/// How many samples differ from those before, each times a factor, by a bit.
std::size_t differences(const std::vector<float>& before, float factor,
                        const std::vector<float>& after) {
  EXPECT_EQ(before.size(), after.size());
  EXPECT_FALSE(before.empty());
  std::size_t count = 0;
  for (std::size_t i = 0; i < std::min(before.size(), after.size()); ++i) {
    if (before[i] * factor != after[i]) ++count;
  }
  return count;
}

constexpr const char* kMinus6 = R"({"entries":[{"effectType":"preAmp"}],
  "parameters":{"preAmp":{"gainDB":-6}}})";

TEST_F(CliChain, ResponsesAsNumbers) {
  const json flat = response(R"({"entries":[{"effectType":"equalizer"}]})");
  ASSERT_GE(flat["points"].size(), 100u);
  for (const json& point : flat["points"]) {
    EXPECT_EQ(point["leftDB"], 0);
    EXPECT_EQ(point["rightDB"], 0);
  }
  const json bump = response(R"({"entries":[{"effectType":"dither"},{"effectType":"equalizer"}],
    "parameters":{"equalizer":{"bands":[{"frequency":1000,"gain":9,"q":2,"filterType":0}]}}})",
                             {"--rate", "96000"});
  EXPECT_EQ(bump["sampleRate"], 96000);
  EXPECT_EQ(bump["leftOut"][0]["effectType"], "dither");
  const auto highest = std::ranges::max_element(
      bump["points"], {}, [](const json& point) { return point["leftDB"].get<double>(); });
  EXPECT_NEAR((*highest)["frequency"], 1000, 10);
  EXPECT_NEAR((*highest)["leftDB"], 9, 0.01);
  EXPECT_NEAR(bump["points"].front()["leftDB"], 0, 0.01);

  const Outcome text = run({"dsp", "response", "--chain", chain(kMinus6)});
  EXPECT_EQ(text.exitCode, 0);
  EXPECT_EQ(std::ranges::count(text.out, '\n'), 32);
  EXPECT_NE(text.out.find("      20.0      -6.00      -6.00\n"), std::string::npos) << text.out;
}

TEST_F(CliChain, ResponsesAsPictures) {
  const fs::path png = _folder / "r.png";
  const auto draw = [&](std::string_view text) {
    const Outcome outcome = run({"dsp", "response", "--chain", chain(text), "--png", png});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(outcome.out, png.string() + "\n");
    return bytesOf(png);
  };
  const std::string flat = draw(R"({"entries":[]})");
  EXPECT_EQ(flat.substr(0, 8), "\x89PNG\r\n\x1a\n");
  EXPECT_EQ(flat.substr(12, 12), (std::string{"IHDR\0\0\x03\xe8\0\0\x02\x08", 12}));  // 1000 x 520
  EXPECT_NE(draw(kMinus6), flat);
  // Curves of any height.
  draw(R"({"entries":[{"effectType":"balance"}],"parameters":{"balance":{"balance":1}}})");

  std::ofstream(png) << "an older file";
  const Outcome outcome = run({"dsp", "response", "--chain", chain("{"), "--png", png});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(bytesOf(png), "an older file");
}

TEST_F(CliChain, WhatIsWrongIsToldInOneLine) {
  make({});
  const std::string good = chain(kMinus6);
  std::ofstream(_folder / "bad.json") << R"({"entries":[{"effectType":"Reverb\n"}]})";
  const std::string bad = _folder / "bad.json";
  const std::string absent = _folder / "absent.json";
  const std::string flac = _folder / "a.flac";
  const std::string out = _folder / "out.wav";
  struct Case {
    std::vector<std::string> arguments;
    int exitCode;
    std::string part;
  };
  const Case cases[] = {
      {{"dsp"}, 2, "--help"},
      {{"dsp", "dance"}, 2, "--help"},
      {{"dsp", "list", "extra"}, 2, "--help"},
      {{"dsp", "response"}, 2, "--chain"},
      {{"dsp", "response", "--chain", good, "--rate", "0"}, 2, "--rate"},
      {{"dsp", "response", "--chain", good, "--json", "--png", "x.png"}, 2, "--json"},
      {{"dsp", "response", "--chain", bad}, 1, bad + ": entry 1: there is no effect"},
      {{"dsp", "response", "--chain", absent}, 1, absent},
      {{"dsp", "response", "--chain", _folder.path()}, 1, "is not a file"},
      {{"dsp", "response", "--chain", good, "--png", _folder / "none/x.png"}, 1, "folder"},
      {{"render", flac, "-o", out, "--chain", bad}, 1, bad + ": entry 1: there is no effect"},
      {{"render", flac, "-o", out, "--chain", absent}, 1, absent},
      {{"play", flac, "--audio", "virtual", "--chain", bad}, 1, "entry 1: there is no effect"},
  };
  for (const Case& each : cases) {
    const Outcome outcome = run(each.arguments);
    SCOPED_TRACE(testing::PrintToString(each.arguments) + outcome.err);
    EXPECT_EQ(outcome.exitCode, each.exitCode);
    EXPECT_TRUE(isOneLine(outcome.err));
    EXPECT_NE(outcome.err.find(each.part), std::string::npos) << each.part;
    EXPECT_EQ(outcome.out, "");
  }
  EXPECT_FALSE(fs::exists(out));
}

TEST_F(CliChain, RendersExactlyTheFactorAndNothingWhereNothingIsOn) {
  make({.bits = 24, .frames = 30'000});
  const auto plain = rendered<float>({});
  EXPECT_EQ(plain.size(), 60'000u);
  const float minus6 = static_cast<float>(std::pow(10.0, -6.0 / 20));
  EXPECT_EQ(differences(plain, minus6, rendered<float>({"--chain", chain(kMinus6)})), 0u);
  EXPECT_EQ(differences(plain, 1, rendered<float>({"--chain", chain(R"({"entries":[]})")})), 0u);

  json off = {{"entries", json::array()}};
  for (const DSPEffectType type : allEffectTypes()) {
    off["entries"].push_back({{"effectType", namesOf(type).rawValue}, {"enabled", false}});
  }
  EXPECT_EQ(differences(plain, 1, rendered<float>({"--chain", chain(off.dump())})), 0u);

  const auto integers = rendered<std::int32_t>({"--integer"});
  for (json& entry : off["entries"]) entry["enabled"] = true;
  off["parameters"]["preAmp"]["gainDB"] = -6;
  EXPECT_EQ(rendered<std::int32_t>({"--integer", "--chain", chain(off.dump())}), integers)
      << "integers reach the device untouched";
  EXPECT_GT(differences(plain, 1, rendered<float>({"--chain", chain(off.dump())})), 0u);
}

TEST_F(CliChain, ReplayGainIsThatOfTheTags) {
  make({.frames = 20'000});
  const Outcome tagged = runTool({"metaflac", "--set-tag=REPLAYGAIN_TRACK_GAIN=-4.50 dB",
                                  "--set-tag=replaygain_album_gain=-7 dB",
                                  "--set-tag=REPLAYGAIN_TRACK_PEAK=1.0", _folder / "a.flac"});
  ASSERT_EQ(tagged.exitCode, 0) << tagged.err;
  const auto plain = rendered<float>({});
  const std::string entry = R"({"entries":[{"effectType":"replayGain"}])";
  const std::pair<std::string, double> cases[] = {
      {entry + "}", -4.5}, {entry + R"(,"parameters":{"replayGain":{"mode":"album"}}})", -7}};
  for (const auto& [text, decibels] : cases) {
    const auto factor = static_cast<float>(std::pow(10.0, decibels / 20));
    EXPECT_EQ(differences(plain, factor, rendered<float>({"--chain", chain(text)})), 0u) << text;
  }
}

TEST_F(CliChain, AnEqualizedFileIsTheEqualizersOutput) {
  make({.sampleRate = 96'000, .frames = 50'000});
  // Cuts alone, for which no headroom is made.
  std::vector<EQBand> bands = flatBands();
  bands[4].gain = -6;
  bands[20].gain = -12;
  json file = {{"entries", {{{"effectType", "equalizer"}}}}};
  for (const EQBand& band : bands) {
    file["parameters"]["equalizer"]["bands"].push_back(
        {{"frequency", band.frequency}, {"gain", band.gain}, {"q", band.q}, {"filterType", 0}});
  }
  const auto plain = rendered<float>({});
  const auto equalized = rendered<float>({"--chain", chain(file.dump())});
  ASSERT_EQ(plain.size(), equalized.size());
  ASSERT_EQ(plain.size(), 100'000u);

  EqualizerDSP equalizer;
  equalizer.setEnabled(true);
  equalizer.setBands(bands);
  equalizer.configure(96'000, 2);
  constexpr std::uint32_t kBlock = 1000;  // the program's blocks are powers of two
  PlanarBuffers block(2, kBlock, sizeof(float));
  block.setFrames(kBlock);
  std::size_t wrong = 0;
  for (std::size_t from = 0; from < 50'000; from += kBlock) {
    float* const left = block.list().channel<float>(0);
    float* const right = block.list().channel<float>(1);
    for (std::size_t i = 0; i < kBlock; ++i) {
      left[i] = plain[2 * (from + i)];
      right[i] = plain[2 * (from + i) + 1];
    }
    equalizer.process(block.list(), kBlock, 96'000);
    for (std::size_t i = 0; i < kBlock; ++i) {
      if (left[i] != equalized[2 * (from + i)] || right[i] != equalized[2 * (from + i) + 1]) {
        ++wrong;
      }
    }
  }
  EXPECT_EQ(wrong, 0u);
  EXPECT_GT(differences(plain, 1, equalized), 90'000u);
}

}  // namespace
}  // namespace velorin::test
