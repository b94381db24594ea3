// `velorin library add|remove` and `velorin scan` on folders of real files.
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Program.h"
#include "support/MountNamespace.h"
#include "support/MusicTree.h"
#include "support/StallingFileSystem.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const auto* const kNamespace =
    testing::AddGlobalTestEnvironment(new MountNamespace);  // NOLINT: gtest owns it

class CliScan : public testing::Test {
 protected:
  CliScan() { ::setenv("VELORIN_HOME", (_home / "home").c_str(), 1); }
  ~CliScan() override { ::unsetenv("VELORIN_HOME"); }

  fs::path music() const { return _home / "music"; }
  static json jsonOf(const std::vector<std::string>& arguments, int exitCode = 0) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, exitCode) << outcome.err;
    return json::parse(outcome.out, nullptr, false);
  }
  static int trackCount() { return jsonOf({"library", "list", "--json"}).at("trackCount"); }
  /// Waits until the line of progress tells that there are files in the library.
  static bool waitUntilImporting(TerminalRun& program) {
    while (program.waitFor(" imported")) {
      const std::string& screen = program.screen();
      const std::size_t at = screen.rfind(" imported");
      if (!screen.substr(0, at).ends_with(" 0")) return true;
    }
    return false;
  }

  const TemporaryFolder _home;
};

TEST_F(CliScan, FoldersComeAreKeptInStepAndGo) {
  writeMusicTree(30, music());
  std::ofstream(music() / "bad \x1b.flac") << "no music";
  const Outcome added = run({"library", "add", music()});
  EXPECT_EQ(added.exitCode, 0) << added.err;
  EXPECT_EQ(added.out.find("scanned 31 files in "), 0U) << added.out;
  EXPECT_NE(added.out.find(": 30 imported, 1 failed\n"), std::string::npos) << added.out;
  EXPECT_NE(added.err.find(fmt::format("velorin: {}/bad \\x1b.flac: ", music().native())),
            std::string::npos)
      << added.err;

  std::ofstream(_home / "file") << "x";
  fs::create_directories(_home / "other/inner");
  struct {
    std::vector<std::string> arguments;
    int exitCode;
    const char* message;
  } const refusals[] = {
      {{"add"}, 2, "FOLDER"},
      {{"add", _home / "none"}, 1, "there is no such folder"},
      {{"add", _home / "file"}, 1, "is not a folder"},
      {{"add", music() / "."}, 1, "is a music folder already"},
      {{"add", fs::directory_iterator(music())->path().parent_path() / "bad \x1b.flac"},
       1,
       "not a"},
      {{"add", _home.path()}, 1, "holds the music folder"},
      {{"add", _home / "other", _home / "other/inner"}, 1, "is inside the music folder"},
      {{"remove", _home / "other"}, 1, "is no music folder"},
  };
  for (const auto& each : refusals) {
    std::vector<std::string> command = {"library"};
    command.insert(command.end(), each.arguments.begin(), each.arguments.end());
    const Outcome outcome = run(command);
    EXPECT_EQ(outcome.exitCode, each.exitCode) << each.message;
    EXPECT_NE(outcome.err.find(each.message), std::string::npos) << outcome.err;
  }
  EXPECT_EQ(jsonOf({"library", "list", "--json"}).at("folders").size(), 1U) << "all or nothing";

  const json again = jsonOf({"scan", "--json"});
  EXPECT_EQ(again.at("complete"), true);
  EXPECT_EQ(again.at("imported"), 0);
  EXPECT_EQ(again.at("existing"), 30);
  EXPECT_EQ(again.at("failures").size(), 1U);
  fs::remove(music() / "bad \x1b.flac");
  const json full = jsonOf({"scan", "--full", "--json"});
  EXPECT_EQ(full.at("imported"), 30);
  EXPECT_EQ(full.at("failed"), 0);

  fs::rename(music(), _home / "away");
  for (const char* const form : {"", "--full"}) {
    std::vector<std::string> command = {"scan"};
    if (*form != '\0') command.emplace_back(form);
    const Outcome offline = run(command);
    EXPECT_EQ(offline.exitCode, 1) << form;
    EXPECT_NE(offline.err.find("music: not there now, its tracks are kept"), std::string::npos)
        << offline.err;
  }
  EXPECT_EQ(trackCount(), 30);
  const json removed = jsonOf({"library", "remove", music(), "--json"});
  EXPECT_EQ(removed.at("removed").at(0).at("trackCount"), 30);
  EXPECT_EQ(trackCount(), 0);
  EXPECT_EQ(run({"scan"}).exitCode, 1) << "no folder";
}

TEST_F(CliScan, AScanThatIsInterruptedOrKilledGoesOn) {
  constexpr int kFiles = 8000;
  writeMusicTree(kFiles, music());
  {
    TerminalRun program({"library", "add", music()}, 120);
    ASSERT_TRUE(waitUntilImporting(program)) << program.screen();
    program.signal(SIGINT);
    EXPECT_EQ(program.waitForExit(), 1);
    EXPECT_NE(program.screen().find("; 'velorin scan' goes on"), std::string::npos)
        << program.screen();
  }
  const int kept = trackCount();
  EXPECT_GT(kept, 0);
  EXPECT_LT(kept, kFiles);
  {
    TerminalRun program({"scan"}, 60);
    ASSERT_TRUE(waitUntilImporting(program)) << program.screen();
    program.signal(SIGKILL);
    EXPECT_EQ(program.waitForExit(), std::nullopt);
  }
  EXPECT_GT(trackCount(), kept);
  const json last = jsonOf({"scan", "--json"});
  EXPECT_EQ(last.at("complete"), true);
  EXPECT_EQ(last.at("imported").get<int>() + last.at("existing").get<int>(), kFiles);
  EXPECT_EQ(trackCount(), kFiles);
}

TEST_F(CliScan, AShareThatHangsDoesNotHoldTheProgram) {
  if (!MountNamespace::mayMount()) GTEST_SKIP() << "this machine lets nobody mount";
  writeMusicTree(20, _home / "source/music");
  fs::create_directory(_home / "share");
  StallingFileSystem server(_home / "source", _home / "share");
  if (!server.isMounted()) GTEST_SKIP() << "this machine has no FUSE";
  ASSERT_EQ(run({"library", "add", _home / "share/music"}).exitCode, 0);
  server.hang();
  TerminalRun program({"scan"}, 120);
  EXPECT_TRUE(program.waitFor("not there now, its tracks are kept", std::chrono::seconds(20)));
  EXPECT_TRUE(program.waitFor("scanned 0 files in "));
  // The kernel lets no process go that waits for an answer of FUSE.
  server.release();
  EXPECT_EQ(program.waitForExit(), 1);
  EXPECT_EQ(trackCount(), 20);
  EXPECT_EQ(jsonOf({"scan", "--json"}).at("existing"), 20);
}

}  // namespace
}  // namespace velorin::test
