// An installation: complete, found by itself, and to the liking of the desktop's own checkers.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "Program.h"
#include "platform/desktop/DesktopIdentity.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

namespace fs = std::filesystem;

class Installation : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    _folder = std::make_unique<TemporaryFolder>();
    const Outcome installed =
        runTool({"cmake", "--install", VELORIN_BUILD_DIR, "--prefix", prefix().native()});
    ASSERT_EQ(installed.exitCode, 0) << installed.out << installed.err;
  }
  static void TearDownTestSuite() { _folder.reset(); }

  static fs::path prefix() { return _folder->path() / "usr"; }
  static std::string textOf(const char* name) {
    std::ostringstream text;
    text << std::ifstream(prefix() / name).rdbuf();
    return text.str();
  }
  static void expectAccepted(std::vector<std::string> command) {
    if (findProgram(command.front()).empty()) GTEST_SKIP() << "no " << command.front();
    const Outcome outcome = runTool(std::move(command));
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    EXPECT_EQ(outcome.err.find("warning"), std::string::npos) << outcome.err;
  }

  static inline std::unique_ptr<TemporaryFolder> _folder;
};

TEST_F(Installation, FindsWhatItBrought) {
  ::setenv("VELORIN_HOME", (*_folder / "home").c_str(), 1);
  const Outcome profiles = runTool({prefix() / "bin/velorin", "dsp", "profiles", "--json"});
  ::unsetenv("VELORIN_HOME");
  EXPECT_EQ(profiles.exitCode, 0) << profiles.err;
  EXPECT_GT(profiles.out.size(), 1000U);
  EXPECT_TRUE(fs::exists(prefix() / "share/icons/hicolor/scalable/apps" /
                         (std::string(kDesktopEntry) + ".svg")));
}

TEST_F(Installation, DesktopEntryNamesWhatThePlayerOpens) {
  const std::string entry = textOf("share/applications/velorin.desktop");
  for (const char* const type : kMusicMimeTypes) {
    EXPECT_NE(entry.find(std::string(type) + ";"), std::string::npos) << type;
  }
  expectAccepted({"desktop-file-validate", prefix() / "share/applications/velorin.desktop"});
}

TEST_F(Installation, MetainfoIsValid) {
  expectAccepted({"appstreamcli", "validate", "--no-net",
                  prefix() / "share/metainfo/org.velorin.Velorin.metainfo.xml"});
}

TEST_F(Installation, UnitIsValid) {
  EXPECT_NE(textOf("share/systemd/user/velorin.service").find("Type=notify\n"), std::string::npos);
  ::setenv("XDG_RUNTIME_DIR", _folder->path().c_str(), 1);
  expectAccepted(
      {"systemd-analyze", "--user", "verify", prefix() / "share/systemd/user/velorin.service"});
}

}  // namespace
}  // namespace velorin::test
