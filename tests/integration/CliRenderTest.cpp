// `velorin render`: every bit of the source is in the WAV file, and nothing else.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Program.h"
#include "WavFile.h"
#include "support/FlacFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

namespace fs = std::filesystem;

/// Interleaved samples of so many bits.
struct Samples {
  std::vector<std::int32_t> values;
  unsigned bits;
};

/// What the reference decoder gives. It writes no plain samples of 12 or 20 bits, but puts those
/// at the top of whole bytes in a WAV file.
Samples decodedByFlac(const fs::path& file, unsigned bits) {
  const bool whole = bits % 8 == 0;
  const fs::path target = file.string() + ".decoded";
  std::vector<std::string> command = {"flac", "-d", "-s", "-f", "-o", target, file};
  if (whole) {
    command.insert(command.end(), {"--force-raw-format", "--endian=little", "--sign=signed"});
  }
  const Outcome flac = runTool(command);
  EXPECT_EQ(flac.exitCode, 0) << flac.err;
  const std::string bytes = whole ? bytesOf(target) : Wav::read(target).data;
  const std::size_t width = (bits + 7) / 8;
  Samples samples{std::vector<std::int32_t>(bytes.size() / width),
                  static_cast<unsigned>(8 * width)};
  for (std::size_t i = 0; i < samples.values.size(); ++i) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + i * width, width);
    const unsigned unused = 32 - samples.bits;
    samples.values[i] = static_cast<std::int32_t>(value << unused) >> unused;
  }
  return samples;
}

/// Full scale at every depth: the source's bits at the top of 16 or 32.
std::string asIntegers(const Samples& samples, std::size_t firstSample = 0) {
  const unsigned container = samples.bits <= 16 ? 16 : 32;
  std::string bytes;
  for (std::size_t i = firstSample; i < samples.values.size(); ++i) {
    const auto value = static_cast<std::uint32_t>(samples.values[i]) << (container - samples.bits);
    bytes.append(reinterpret_cast<const char*>(&value), container / 8);
  }
  return bytes;
}

std::string asFloats(const Samples& samples, double gain = 1) {
  std::string bytes;
  for (const std::int32_t sample : samples.values) {
    const auto value =
        static_cast<float>(std::ldexp(gain * sample, 1 - static_cast<int>(samples.bits)));
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  return bytes;
}

class CliRender : public testing::Test {
 protected:
  fs::path make(const std::string& name, const FlacRecipe& recipe) {
    FlacFixture::make(recipe).write(_folder / name);
    return _folder / name;
  }
  std::string out() const { return (_folder / "out.wav").string(); }

  TemporaryFolder _folder;
};

struct Depth {
  unsigned bits, channels, rate;
  double start = 0;  ///< seconds; chosen to fall on a frame
};

TEST_F(CliRender, IntegerOutputIsTheSource) {
  const Depth cases[] = {{8, 1, 8000},    {8, 2, 22050},        {12, 2, 11025},
                         {16, 2, 44100},  {16, 1, 44100, 0.1},  {16, 3, 48000},
                         {16, 8, 96000},  {20, 2, 88200},       {20, 4, 44100},
                         {24, 1, 192000}, {24, 2, 96000, 0.05}, {24, 6, 48000},
                         {24, 2, 352800}, {32, 2, 384000},      {32, 5, 44100},
                         {32, 7, 32000},  {16, 2, 37800},       {24, 2, 176400, 0.01}};
  for (const Depth& each : cases) {
    SCOPED_TRACE(testing::Message() << each.bits << " bits, " << each.channels << " channels, "
                                    << each.rate << " Hz, from " << each.start << " s");
    const fs::path file = make(
        "a.flac",
        {.channels = each.channels, .bits = each.bits, .sampleRate = each.rate, .frames = 30'011});
    std::vector<std::string> arguments = {"render", file, "-o", out(), "--integer"};
    if (each.start > 0) {
      arguments.insert(arguments.end(), {"--start", std::to_string(each.start)});
    }
    const Outcome outcome = run(arguments);
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const Wav wav = Wav::read(out());
    EXPECT_EQ(wav.tag, 1);
    EXPECT_EQ(wav.channels, each.channels);
    EXPECT_EQ(wav.rate, each.rate);
    EXPECT_EQ(wav.bits, each.bits <= 16 ? 16 : 32);
    EXPECT_EQ(wav.extensible, each.channels > 2 || each.bits > 16);
    const auto skipped = static_cast<std::size_t>(std::lround(each.start * each.rate));
    EXPECT_EQ(firstDifference(wav.data,
                              asIntegers(decodedByFlac(file, each.bits), skipped * each.channels)),
              "");
  }
}

TEST_F(CliRender, FloatOutputIsExact) {
  for (const Depth& each : {Depth{16, 2, 44100}, Depth{24, 2, 96000}, Depth{24, 6, 48000}}) {
    SCOPED_TRACE(testing::Message() << each.bits << " bits, " << each.channels << " channels");
    const fs::path file =
        make("a.flac", {.channels = each.channels, .bits = each.bits, .sampleRate = each.rate});
    const Outcome outcome = run({"render", file, "-o", out()});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const Wav wav = Wav::read(out());
    EXPECT_EQ(wav.tag, 3);
    EXPECT_EQ(wav.bits, 32);
    EXPECT_EQ(firstDifference(wav.data, asFloats(decodedByFlac(file, each.bits))), "");
  }
}

TEST_F(CliRender, FilesOfOneFormatJoinAndOthersStartTheNextFile) {
  const fs::path first = make("1.flac", {.frames = 5000, .seed = 1});
  const fs::path second = make("2.flac", {.frames = 7001, .seed = 2});
  const fs::path other =
      make("3.flac", {.bits = 24, .sampleRate = 96'000, .frames = 3000, .seed = 3});
  const fs::path events = _folder / "events.jsonl";
  const Outcome outcome =
      run({"render", first, second, other, "-o", out(), "--integer", "--events", events.string()});
  ASSERT_EQ(outcome.exitCode, 0) << outcome.err;

  const std::string joined =
      asIntegers(decodedByFlac(first, 16)) + asIntegers(decodedByFlac(second, 16));
  EXPECT_EQ(firstDifference(Wav::read(out()).data, joined), "");
  EXPECT_EQ(
      firstDifference(Wav::read(_folder / "out.2.wav").data, asIntegers(decodedByFlac(other, 24))),
      "");

  std::vector<std::uint64_t> starts;
  std::ifstream lines(events);
  for (std::string line; std::getline(lines, line);) {
    const auto event = nlohmann::json::parse(line);
    if (event.at("event") == "trackDidChange") starts.push_back(event.at("frame"));
  }
  EXPECT_EQ(starts, (std::vector<std::uint64_t>{0, 5000, 12001}));
}

TEST_F(CliRender, SettingsReachTheDevice) {
  const fs::path file = make("a.flac", {.frames = 44'100, .signal = FlacRecipe::Signal::sine});
  struct Setting {
    std::vector<std::string> options;
    std::uint32_t rate;
    std::size_t frames;  ///< at least, and at most 1 % more
  };
  const Setting settings[] = {
      {{"--strategy", "powerOf2", "--multiplier", "2"}, 88'200, 80'000},
      {{"--strategy", "fixed", "--fixed-rate", "48000"}, 48'000, 44'000},
      {{"--strategy", "max", "--device-rates", "44100,96000"}, 96'000, 88'000},
      {{"--device-rates", "44100,48000", "--device-buffer-max", "2048"}, 44'100, 44'100},
  };
  for (const Setting& each : settings) {
    std::vector<std::string> arguments = {"render", file, "-o", out()};
    arguments.insert(arguments.end(), each.options.begin(), each.options.end());
    const Outcome outcome = run(arguments);
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const Wav wav = Wav::read(out());
    EXPECT_EQ(wav.rate, each.rate);
    EXPECT_GE(wav.data.size() / 8, each.frames);
    EXPECT_LE(wav.data.size() / 8, static_cast<std::size_t>(1.01 * each.rate));
  }

  const Outcome quiet = run({"render", file, "-o", out(), "--volume", "0.5"});
  ASSERT_EQ(quiet.exitCode, 0) << quiet.err;
  // The volume is a float factor on float samples: halving is exact.
  EXPECT_EQ(firstDifference(Wav::read(out()).data, asFloats(decodedByFlac(file, 16), 0.5)), "");
}

TEST_F(CliRender, WhatCannotBeWrittenLeavesNothingBehind) {
  const fs::path file = make("a.flac", {.frames = 200'000});
  const std::string source = bytesOf(file);
  std::ofstream(out()) << "an older file";
  const auto expectFailure = [](const Outcome& outcome, const std::string& message) {
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.err.find(message), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.err.find("velorin: "), 0U) << outcome.err;
  };
  expectFailure(run({"render", file, "-o", "/dev/full"}), "No space left");
  expectFailure(run({"render", file, "-o", out()}, 100'000), "File too large");
  expectFailure(run({"render", file, "-o", file.string()}), "one of the files to render");
  expectFailure(run({"render", file, "-o", (_folder / "none" / "out.wav").string()}),
                "make the folder first");
  expectFailure(run({"render", file, "-o", _folder.path().string()}), "is a folder");

  EXPECT_EQ(bytesOf(out()), "an older file");
  EXPECT_EQ(bytesOf(file), source);
  std::size_t files = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(_folder.path())) ++files;
  EXPECT_EQ(files, 2U) << "temporary files were left";
}

TEST_F(CliRender, ATruncatedFileKeepsWhatItHoldsAndSaysSo) {
  FlacFixture fixture = FlacFixture::make({.frames = 100'000});
  fixture.bytes.resize(fixture.bytes.size() / 2);
  fixture.write(_folder / "cut.flac");
  const Outcome outcome = run({"render", _folder / "cut.flac", "-o", out(), "--integer"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_NE(outcome.err.find("of 100000 samples"), std::string::npos) << outcome.err;
  const Wav wav = Wav::read(out());
  Samples whole{{}, 16};
  for (std::size_t frame = 0; frame < 100'000; ++frame) {
    for (const auto& channel : fixture.samples) whole.values.push_back(channel[frame]);
  }
  const std::string all = asIntegers(whole);
  ASSERT_GT(wav.data.size(), 40'000U * 4);
  EXPECT_EQ(firstDifference(wav.data, all.substr(0, wav.data.size())), "");
}

}  // namespace
}  // namespace velorin::test
