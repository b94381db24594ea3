// What the program says to wrong usage and to files that are not what they should be.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Program.h"
#include "support/FlacFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

namespace fs = std::filesystem;

bool isOneLine(const std::string& text) {
  return !text.empty() && text.back() == '\n' && std::count(text.begin(), text.end(), '\n') == 1;
}

TEST(CliUsage, WrongUsageEndsWith2AndOneLine) {
  const std::vector<std::vector<std::string>> cases = {
      {"dance"},
      {"play"},
      {"play", "a.flac", "--volume", "1.5"},
      {"play", "a.flac", "--volume", "nan"},
      {"play", "a.flac", "--start", "-1"},
      {"play", "a.flac", "--start", "soon"},
      {"play", "a.flac", "--strategy", "loudest"},
      {"play", "a.flac", "--multiplier", "1"},
      {"play", "a.flac", "--fixed-rate", "inf"},
      {"play", "a.flac", "--audio", "radio"},
      {"play", "a.flac", "--no-such-option"},
      {"render", "a.flac"},
      {"render", "-o", "out.wav"},
      {"render", "a.flac", "-o", "out.wav", "--device-rates", "44100,many"},
      {"render", "a.flac", "-o", "out.wav", "--device-buffer-max", "0"},
      {"devices", "extra"},
      {"path", "extra"},
      {"control", "volume", "2"},
      {"control", "exclusive"},
      {"control", "device"},
      {"play", "a.flac", "--memory-limit", "0"},
      {"play", "a.flac", "--volume-mode", "loud"},
      {"info"},
      {"search"},
      {"search", "a", "--limit", "0"},
      {"search", "a", "--offset", "-1"},
      {"library"},
      {"library", "list", "extra"},
  };
  for (const auto& arguments : cases) {
    const Outcome outcome = run(arguments);
    const std::string shown = testing::PrintToString(arguments);
    EXPECT_EQ(outcome.exitCode, 2) << shown;
    EXPECT_TRUE(isOneLine(outcome.err)) << shown << outcome.err;
    EXPECT_EQ(outcome.err.find("velorin: "), 0U) << shown << outcome.err;
    EXPECT_NE(outcome.err.find("--help"), std::string::npos) << shown << outcome.err;
    EXPECT_EQ(outcome.out, "") << shown;
  }
}

TEST(CliUsage, HelpAndVersion) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"-h"}, {"--help"}, {"play", "--help"}, {"render", "-h"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_NE(outcome.out.find("Usage: velorin"), std::string::npos) << outcome.out;
  }
  const Outcome version = run({"--version"});
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_TRUE(isOneLine(version.out)) << version.out;
}

/// Files that cannot be played, and a word that the message has to hold.
class CliBadInput : public testing::Test {
 protected:
  struct Bad {
    std::string path;
    std::string message;
  };

  void SetUp() override {
    const FlacFixture fixture = FlacFixture::make({.frames = 50'000});
    write("header.flac", std::vector(fixture.bytes.begin(), fixture.bytes.begin() + 20));
    write("empty.flac", {});
    auto wrong = fixture.bytes;
    wrong[0] = std::byte{'X'};
    write("wrong.flac", wrong);
    fs::create_directory(_folder / "folder.flac");
    ::mkfifo((_folder / "pipe.flac").c_str(), 0600);
    _bad = {{path("header.flac"), "damaged"},
            {path("empty.flac"), "empty"},
            {path("wrong.flac"), "not a FLAC file"},
            {path("missing.flac"), "no such file"},
            {path("pipe.flac"), "pipe"}};
    if (::geteuid() != 0) {
      write("secret.flac", fixture.bytes);
      fs::permissions(_folder / "secret.flac", fs::perms::none);
      _bad.push_back({path("secret.flac"), "permission"});
    }
  }

  std::string path(const std::string& name) const { return (_folder / name).string(); }
  void write(const std::string& name, const std::vector<std::byte>& bytes) const {
    std::ofstream(_folder / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }

  TemporaryFolder _folder;
  std::vector<Bad> _bad;
};

TEST_F(CliBadInput, EndsWith1AndSaysWhy) {
  _bad.push_back({path("folder.flac"), "folder"});
  for (const auto& [file, message] : _bad) {
    const std::vector<std::vector<std::string>> commands = {{"info", file},
                                                            {"info", file, "--json"},
                                                            {"render", file, "-o", path("out.wav")},
                                                            {"play", "--audio", "virtual", file}};
    for (const auto& command : commands) {
      const Outcome outcome = run(command);
      const std::string shown = testing::PrintToString(command) + "\n" + outcome.err;
      EXPECT_EQ(outcome.exitCode, 1) << shown;
      EXPECT_NE(outcome.err.find("velorin: "), std::string::npos) << shown;
      EXPECT_NE(outcome.err.find(message), std::string::npos) << shown;
    }
  }
  EXPECT_FALSE(fs::exists(path("out.wav")));
}

TEST_F(CliBadInput, DoesNotKeepTheGoodOnesFromPlaying) {
  FlacFixture::make({.frames = 2000}).write(_folder / "good \xff.flac");
  std::vector<std::string> arguments = {"play", "--audio", "virtual"};
  for (const Bad& each : _bad) arguments.push_back(each.path);
  arguments.push_back(path("good \xff.flac"));
  const Outcome outcome = run(arguments);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_NE(outcome.out.find("played 1 track\n"), std::string::npos) << outcome.out;
  EXPECT_EQ(outcome.out.find('\x1b'), std::string::npos) << "control codes in a file";
}

TEST(CliInfo, TellsWhatAFileHolds) {
  const TemporaryFolder folder;
  const fs::path file = folder / "name \xfe\x1b[2J.flac";
  FlacFixture::make({.channels = 3, .bits = 20, .sampleRate = 48'000, .frames = 12'345})
      .write(file);
  const Outcome json = run({"info", file, "--json"});
  ASSERT_EQ(json.exitCode, 0) << json.err;
  const auto list = nlohmann::json::parse(json.out);
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0].at("sampleRate"), 48'000);
  EXPECT_EQ(list[0].at("bitsPerSample"), 20);
  EXPECT_EQ(list[0].at("channels"), 3);
  EXPECT_EQ(list[0].at("totalSamples"), 12'345);
  EXPECT_EQ(list[0].at("fileSize"), fs::file_size(file));
  const Outcome md5 = runTool({"metaflac", "--show-md5sum", file});
  EXPECT_EQ(list[0].at("md5").get<std::string>() + "\n", md5.out);

  const Outcome text = run({"info", file});
  EXPECT_EQ(text.exitCode, 0);
  EXPECT_EQ(text.out.find('\x1b'), std::string::npos) << "a file name reached the terminal";
}

TEST(CliInfo, KnowsFilesThatOthersDecode) {
  const TemporaryFolder folder;
  const std::string file = folder / "Artist - a.mp3";
  runTool({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=duration=2", "-b:a", "128k",
           "-metadata", "title=A\nB", "-metadata", "track=3/9", "-metadata", "date=1999", file});
  const Outcome json = run({"info", file, "--json"});
  ASSERT_EQ(json.exitCode, 0) << json.err;
  EXPECT_EQ(json.err, "");
  const auto info = nlohmann::json::parse(json.out).at(0);
  EXPECT_EQ(info.at("format"), "MP3");
  EXPECT_EQ(info.at("sampleRate"), 44'100);
  EXPECT_EQ(info.at("totalSamples"), 88'200);
  EXPECT_EQ(info.at("duration"), 2);
  EXPECT_NEAR(info.at("bitRate").get<double>(), 128'000, 8'000);
  EXPECT_EQ(info.at("title"), "A\nB");
  EXPECT_EQ(info.at("trackNumber"), 3);
  EXPECT_EQ(info.at("year"), 1999);
  for (const char* unknown : {"bitsPerSample", "md5", "artist", "album"}) {
    EXPECT_TRUE(info.at(unknown).is_null()) << unknown;
  }
  const Outcome text = run({"info", file});
  EXPECT_EQ(text.exitCode, 0);
  EXPECT_NE(text.out.find("  title      A\\nB\n"), std::string::npos) << text.out;
}

TEST(CliInfo, NoticesThatTheEndIsMissing) {
  const TemporaryFolder folder;
  FlacFixture fixture = FlacFixture::make({.frames = 100'000});
  fixture.bytes.resize(fixture.bytes.size() * 9 / 10);
  fixture.write(folder / "cut.flac");
  const Outcome outcome = run({"info", folder / "cut.flac"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_TRUE(isOneLine(outcome.err)) << outcome.err;
}

TEST(CliDevices, PrintsJson) {
  const Outcome outcome = run({"devices", "--audio", "virtual", "--json"});
  ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
  const auto list = nlohmann::json::parse(outcome.out);
  ASSERT_FALSE(list.empty());
  EXPECT_TRUE(list[0].at("default").get<bool>());
  EXPECT_FALSE(list[0].at("sampleRates").empty());
  EXPECT_FALSE(list[0].at("bitDepths").empty());
  EXPECT_GE(list[0].at("bufferMaximum"), list[0].at("bufferMinimum"));
  EXPECT_FALSE(list[0].at("hardwareVolume").get<bool>());
  const TemporaryFolder folder;
  FlacFixture::make({}).write(folder / "a.flac");
  const Outcome unknown =
      run({"play", "--audio", "virtual", "--device", "no-such", folder / "a.flac"});
  EXPECT_EQ(unknown.exitCode, 1);
  EXPECT_NE(unknown.err.find("velorin devices"), std::string::npos) << unknown.err;
}

}  // namespace
}  // namespace velorin::test
