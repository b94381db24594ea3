// `velorin render`: tracks that follow each other, to the sample, and the events at their frames.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <numeric>

#include "Program.h"
#include "WavFile.h"
#include "support/FlacFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
using Counts = std::vector<std::size_t>;

struct Start {
  std::size_t frame;
  std::string join;  ///< "gapless", "crossfade" or empty
  bool operator==(const Start&) const = default;
};
void PrintTo(const Start& start, std::ostream* out) {
  *out << start.frame << ' ' << start.join;
}

class CliJoin : public testing::Test {
 protected:
  static constexpr FlacRecipe kTone{.frames = 60'000, .signal = FlacRecipe::Signal::sine};

  std::string make(const std::string& name, const FlacRecipe& recipe) {
    FlacFixture::make(recipe).write(_folder / name);
    return _folder / name;
  }

  /// Cuts a file into tracks of so many frames.
  Strings cut(const std::string& file, const Counts& lengths) {
    Strings tracks;
    std::size_t from = 0;
    for (const std::size_t length : lengths) {
      tracks.push_back(_folder / (std::to_string(tracks.size() + 1) + ".flac"));
      const Outcome flac =
          runTool({"flac", "-s", "-f", "--skip=" + std::to_string(from),
                   "--until=" + std::to_string(from + length), "-o", tracks.back(), file});
      EXPECT_EQ(flac.exitCode, 0) << flac.err;
      from += length;
    }
    return tracks;
  }

  struct Rendered {
    Outcome outcome;
    std::vector<Wav> files;
    std::vector<Start> starts;
    std::string events;
  };
  Rendered render(const Strings& inputs, const Strings& options) {
    const fs::path out = _folder / "out.wav", log = _folder / "events.jsonl";
    for (const char* old : {"out.wav", "out.2.wav", "out.3.wav"}) fs::remove(_folder / old);
    Strings arguments = {"render", "-o", out, "--events", log};
    arguments.insert(arguments.end(), inputs.begin(), inputs.end());
    arguments.insert(arguments.end(), options.begin(), options.end());
    Rendered rendered{run(arguments), {}, {}, {}};
    for (const char* name : {"out.wav", "out.2.wav", "out.3.wav"}) {
      if (fs::exists(_folder / name)) rendered.files.push_back(Wav::read(_folder / name));
    }
    std::ifstream lines(log);
    for (std::string line; std::getline(lines, line);) {
      const auto event = nlohmann::json::parse(line);
      if (event.at("event") == "playbackProgressDidUpdate") continue;  // by the clock
      rendered.events += line + "\n";
      if (event.at("event") != "trackDidChange") continue;
      rendered.starts.push_back({event.at("frame"), event.contains("gapless")     ? "gapless"
                                                    : event.contains("crossfade") ? "crossfade"
                                                                                  : ""});
    }
    return rendered;
  }

  TemporaryFolder _folder;
};

TEST_F(CliJoin, PiecesOfOneToneJoinToTheToneAgain) {
  struct Case {
    FlacRecipe recipe;
    Counts lengths;
    Strings options;
    const char* join = "gapless";
  };
  FlacRecipe deep = kTone, mono = kTone;
  deep.bits = 24;
  deep.sampleRate = 96'000;
  mono.channels = 1;
  const Counts halves = {25'001, 34'999};
  const Case cases[] = {
      {kTone, halves, {"--integer"}},
      {deep, halves, {"--integer"}},
      {deep, halves, {}},
      {mono, {4410, 4410, 999, 1, 4096, 8192, 37'892}, {"--integer"}},
      {kTone, {4410, 4410, 999, 1, 4096, 8192, 37'892}, {"--device-buffer-max", "4096"}},
      {kTone, halves, {"--no-gapless"}, ""},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(testing::Message() << each.recipe.bits << " bits, " << each.lengths.size()
                                    << " tracks " << testing::PrintToString(each.options));
    const std::string whole = make("whole.flac", each.recipe);
    const Rendered expected = render({whole}, each.options);
    const Strings tracks = cut(whole, each.lengths);
    const Rendered joined = render(tracks, each.options);
    ASSERT_EQ(joined.outcome.exitCode, 0) << joined.outcome.err;
    ASSERT_EQ(joined.files.size(), 1U);
    EXPECT_EQ(firstDifference(joined.files[0].data, expected.files.at(0).data), "");
    std::vector<Start> starts = {{0, ""}};
    for (std::size_t i = 1; i < each.lengths.size(); ++i) {
      starts.push_back({starts.back().frame + each.lengths[i - 1], each.join});
    }
    EXPECT_EQ(joined.starts, starts);
    const Rendered again = render(tracks, each.options);
    EXPECT_EQ(again.events, joined.events);
    EXPECT_TRUE(again.files.at(0).data == joined.files[0].data);
  }
}

TEST_F(CliJoin, CodecsThatPadTheirFilesJoinToTheFrame) {
  struct Case {
    const char* extension;
    Strings codec;
    Strings options;
    bool isLossless = true;
  };
  const Case cases[] = {
      {".m4a", {"-c:a", "alac"}, {"--integer"}},
      {".m4a", {"-c:a", "alac"}, {}},
      {".aiff", {}, {"--integer"}},
      {".mp3", {"-c:a", "libmp3lame", "-b:a", "256k"}, {}, false},
      {".m4a", {"-c:a", "aac", "-b:a", "256k"}, {}, false},
      {".ogg", {"-c:a", "libvorbis", "-q:a", "8"}, {}, false},
  };
  const std::string whole = make("whole.flac", kTone);
  for (const Case& each : cases) {
    SCOPED_TRACE(testing::PrintToString(each.codec));
    Strings tracks = cut(whole, {25'001, 34'999});
    for (std::string& track : tracks) {
      Strings command = {"ffmpeg", "-nostdin", "-v", "error", "-y", "-i", track};
      command.insert(command.end(), each.codec.begin(), each.codec.end());
      track.replace(track.size() - 5, 5, each.extension);
      command.push_back(track);
      ASSERT_EQ(runTool(command).exitCode, 0);
    }
    const Rendered expected = render({whole}, each.options);
    const Rendered joined = render(tracks, each.options);
    ASSERT_EQ(joined.outcome.exitCode, 0) << joined.outcome.err;
    EXPECT_EQ(joined.starts, (std::vector<Start>{{0, ""}, {25'001, "gapless"}}));
    const std::string& there = joined.files.at(0).data;
    const std::string& original = expected.files.at(0).data;
    if (each.isLossless) {
      EXPECT_EQ(firstDifference(there, original), "");
      continue;
    }
    ASSERT_EQ(there.size(), original.size());
    const auto errorWith = [&](int lag) {
      double sum = 0;
      for (std::size_t i = 2 * 25'001; i + 2 < there.size() / 4; ++i) {
        sum += std::pow(numberAt<float>(there, 4 * i) -
                            numberAt<float>(original, 4 * (i + static_cast<std::size_t>(2 * lag))),
                        2);
      }
      return sum;
    };
    // In the second track no other frame fits better.
    EXPECT_LT(errorWith(0), 0.5 * errorWith(1));
    EXPECT_LT(errorWith(0), 0.5 * errorWith(-1));
  }
}

TEST_F(CliJoin, TracksOfASheetAreTheRangesOfItsFile) {
  const std::string file = make("album.flac", {.frames = 3 * 44'100});
  const auto sheet = [&](const char* name, const Strings& starts) {
    std::ofstream text(_folder / name);
    text << "FILE \"album.flac\" WAVE\n";
    for (std::size_t i = 0; i < starts.size(); ++i) {
      text << "TRACK 0" << i + 1 << " AUDIO\nINDEX 01 00:" << starts[i] << "\n";
    }
    return std::string(_folder / name);
  };
  // 75 CUE frames a second, 588 samples each.
  const std::string all = sheet("all.cue", {"00:00", "00:50", "02:01"});
  const std::string late = sheet("late.cue", {"01:30", "02:00"});
  const Rendered whole = render({file}, {"--integer"});
  const Rendered contiguous = render({all}, {"--integer"});
  ASSERT_EQ(contiguous.outcome.exitCode, 0) << contiguous.outcome.err;
  EXPECT_EQ(firstDifference(contiguous.files.at(0).data, whole.files.at(0).data), "");
  EXPECT_EQ(contiguous.starts,
            (std::vector<Start>{{0, ""}, {50 * 588, "gapless"}, {151 * 588, "gapless"}}));

  const Rendered back = render({all, late}, {"--integer"});
  ASSERT_EQ(back.outcome.exitCode, 0) << back.outcome.err;
  EXPECT_EQ(firstDifference(back.files.at(0).data,
                            whole.files[0].data + whole.files[0].range(105 * 588, 44'100 * 3)),
            "");
  ASSERT_EQ(back.starts.size(), 5U);
  EXPECT_EQ(back.starts[3], (Start{3 * 44'100, "gapless"}));
  EXPECT_EQ(back.starts[4], (Start{3 * 44'100 + 45 * 588, "gapless"}));
}

TEST_F(CliJoin, WhatDoesNotFitTheStreamStartsAnew) {
  struct Case {
    FlacRecipe second;
    Strings options;
    std::vector<std::uint32_t> rates;  ///< of the WAV files
    const char* join = "";
  };
  const FlacRecipe high{.sampleRate = 96'000, .frames = 96'000};
  const FlacRecipe deep{.bits = 24, .frames = 44'100};
  const FlacRecipe mono{.channels = 1, .frames = 44'100};
  const Case cases[] = {
      {high, {}, {44'100, 96'000}},
      {high, {"--strategy", "max", "--device-rates", "44100,96000"}, {96'000}, "gapless"},
      {deep, {"--integer"}, {44'100, 44'100}},
      {deep, {}, {44'100}, "gapless"},
      {mono, {}, {44'100, 44'100}},
  };
  const std::string first = make("first.flac", kTone);
  for (const Case& each : cases) {
    SCOPED_TRACE(testing::PrintToString(each.options));
    const Rendered rendered = render({first, make("second.flac", each.second)}, each.options);
    ASSERT_EQ(rendered.outcome.exitCode, 0) << rendered.outcome.err;
    std::vector<std::uint32_t> rates;
    for (const Wav& wav : rendered.files) rates.push_back(wav.rate);
    EXPECT_EQ(rates, each.rates);
    const std::size_t length = kTone.frames * std::size_t{each.rates[0]} / 44'100;
    ASSERT_EQ(rendered.starts.size(), 2U);
    EXPECT_NEAR(rendered.starts[1].frame, length, each.rates[0] == 44'100 ? 0 : 1);
    EXPECT_EQ(rendered.starts[1].join, each.join);
  }
}

TEST_F(CliJoin, ACrossfadeTakesItsLengthFromTheSum) {
  const std::size_t fade = 11'025;
  Strings tracks;
  std::vector<Wav> alone;
  for (const std::uint32_t length : {120'000U, 110'000U, 130'000U}) {
    const std::string name = std::to_string(tracks.size()) + ".flac";
    tracks.push_back(make(name, {.frames = length, .seed = length}));
    alone.push_back(render({tracks.back()}, {}).files.at(0));
  }
  const Rendered faded = render(tracks, {"--crossfade", "0.25"});
  ASSERT_EQ(faded.outcome.exitCode, 0) << faded.outcome.err;
  const Wav& wav = faded.files.at(0);
  EXPECT_EQ(wav.frames(), 360'000 - 2 * fade);
  // A track is announced where the fade into it is over.
  EXPECT_EQ(faded.starts,
            (std::vector<Start>{{0, ""}, {120'000, "crossfade"}, {230'000 - fade, "crossfade"}}));
  std::size_t begin = 0;
  for (std::size_t i = 0; i < alone.size(); ++i) {
    const std::size_t from = i == 0 ? 0 : fade;
    const std::size_t to = alone[i].frames() - (i + 1 < alone.size() ? fade : 0);
    EXPECT_EQ(firstDifference(wav.range(begin + from, to - from), alone[i].range(from, to - from)),
              "")
        << i;
    begin += alone[i].frames() - fade;
  }
  EXPECT_TRUE(render(tracks, {"--crossfade", "0.25"}).files.at(0).data == wav.data);
}

TEST_F(CliJoin, AFileThatCannotBePlayedIsToldAndTheRestRendered) {
  const Strings tracks = cut(make("whole.flac", kTone), {30'000, 30'000});
  const std::string broken = _folder / "broken.flac";
  std::ofstream(broken) << "no music";
  const std::string list = _folder / "list.m3u";
  std::ofstream(list) << "1.flac\nbroken.flac\nmissing.flac\n2.flac\n";
  const Rendered rendered = render({list}, {"--integer"});
  EXPECT_EQ(rendered.outcome.exitCode, 1);
  for (const char* told : {"broken.flac: ", "missing.flac: there is no such file"}) {
    EXPECT_NE(rendered.outcome.err.find(told), std::string::npos) << rendered.outcome.err;
  }
  const Rendered whole = render({_folder / "whole.flac"}, {"--integer"});
  EXPECT_EQ(firstDifference(rendered.files.at(0).data, whole.files.at(0).data), "");
}

}  // namespace
}  // namespace velorin::test
