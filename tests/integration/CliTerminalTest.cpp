// `velorin play` as a listener sees it: on a terminal, by keys and signals.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>

#include "Program.h"
#include "support/FlacFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

constexpr int kWide = 160;

class CliTerminal : public testing::Test {
 protected:
  void SetUp() override {
    const FlacRecipe recipe{.sampleRate = 8000, .frames = 8000 * 60};
    FlacFixture::make(recipe).write(_folder / "2 second.flac");
    FlacFixture::make(recipe).write(_folder / "10 tenth.flac");
    FlacFixture::make({.sampleRate = 8000, .frames = 8000 * 60}).write(_folder / "1 first.flac");
  }
  std::vector<std::string> playFolder() const {
    return {"play", "--audio", "virtual", _folder.path()};
  }
  TemporaryFolder _folder;
};

TEST_F(CliTerminal, KeysWork) {
  TerminalRun program(playFolder(), kWide);
  ASSERT_TRUE(program.waitFor("1/3  1 first")) << program.screen();
  ASSERT_TRUE(program.waitFor("▶ 0:0")) << program.screen();
  // Paused, so that positions do not depend on how busy the machine is.
  program.type(" ");
  EXPECT_TRUE(program.waitFor("❚❚ 0:0")) << program.screen();
  program.type("\x1b[D\x1b[D\x1b[C");
  EXPECT_TRUE(program.waitFor("❚❚ 0:05 / 1:00")) << program.screen();
  program.type("\x1b[C\x1b[C");
  EXPECT_TRUE(program.waitFor("❚❚ 0:15")) << program.screen();
  program.type("\x1b[D");
  EXPECT_TRUE(program.waitFor("❚❚ 0:10")) << program.screen();
  program.type("\x1b[B");
  EXPECT_TRUE(program.waitFor("95 %")) << program.screen();
  EXPECT_TRUE(program.waitFor("not bit-perfect")) << program.screen();
  program.type("\x1b[A ");
  EXPECT_TRUE(program.waitFor("▶ 0:1")) << program.screen();
  program.type("n");
  EXPECT_TRUE(program.waitFor("2/3  2 second")) << program.screen();
  program.type("n");
  EXPECT_TRUE(program.waitFor("3/3  10 tenth")) << program.screen();
  program.type("p");
  EXPECT_TRUE(program.waitFor("2/3  2 second")) << program.screen();
  program.type("rs");
  EXPECT_TRUE(program.waitFor(" · shuffle · repeat all  2 second")) << program.screen();
  program.type("h");
  EXPECT_TRUE(program.waitFor("space pause")) << program.screen();
  EXPECT_FALSE(program.isCooked());
  program.type("q");
  EXPECT_EQ(program.waitForExit(), 0) << program.screen();
  EXPECT_TRUE(program.isCooked());
  EXPECT_NE(program.screen().find("played 4 tracks"), std::string::npos) << program.screen();
}

TEST_F(CliTerminal, SignalsEndItWithinTwoSecondsAndRestoreTheTerminal) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    TerminalRun program(playFolder(), kWide);
    ASSERT_TRUE(program.waitFor("▶ 0:0")) << program.screen();
    const auto begin = std::chrono::steady_clock::now();
    program.signal(signal);
    EXPECT_TRUE(program.waitForExit(std::chrono::seconds(5)).has_value()) << program.screen();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    EXPECT_TRUE(program.isCooked());
  }
}

// Every redraw stays on its line, and what a tag holds cannot move the cursor.
TEST_F(CliTerminal, FitsNarrowTerminalsAndDisarmsTitles) {
  const TemporaryFolder hostile;
  FlacFixture::make({.sampleRate = 8000, .frames = 8000 * 20})
      .write(hostile / "\x1b[2Jevil \xff ありがとう a long name that goes on and on.flac");
  TerminalRun program({"play", "--audio", "virtual", hostile.path()}, 30);
  ASSERT_TRUE(program.waitFor("▶ 0:0")) << program.screen();
  ASSERT_TRUE(program.waitFor("▶ ")) << "no redraw";
  program.type("q");
  ASSERT_EQ(program.waitForExit(), 0);
  const std::string& screen = program.screen();
  EXPECT_EQ(screen.find("\x1b[2J"), std::string::npos);
  constexpr std::string_view kErase = "\r\x1b[K";
  int statuses = 0;
  for (std::size_t at = screen.find(kErase); at != std::string::npos;) {
    at += kErase.size();
    const std::size_t end = std::min(screen.find('\r', at), screen.size());
    const std::string status = screen.substr(at, end - at);
    at = screen.find(kErase, at);
    if (!status.starts_with("▶")) continue;
    ++statuses;
    // Count columns: one for each character, two for each of the wide ones.
    int columns = 0;
    for (const char byte : status) {
      const auto value = static_cast<unsigned char>(byte);
      if ((value & 0xC0) != 0x80) columns += value == 0xE3 ? 2 : 1;
    }
    EXPECT_LT(columns, 30) << status;
  }
  EXPECT_GT(statuses, 1);
}

}  // namespace
}  // namespace velorin::test
