#include "foundation/Log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "foundation/AtomicFile.h"
#include "support/TemporaryFolder.h"

namespace velorin::log {
namespace {

/// Sends stderr into a file while it lives.
class StderrFile {
 public:
  explicit StderrFile(const std::filesystem::path& path) : _path(path) {
    const int file = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    ::dup2(file, STDERR_FILENO);
    ::close(file);
  }
  ~StderrFile() {
    ::dup2(_saved, STDERR_FILENO);
    ::close(_saved);
  }
  std::string content() const {
    std::string failure;
    return readFile(_path, failure).value_or(failure);
  }

 private:
  std::filesystem::path _path;
  int _saved = ::dup(STDERR_FILENO);
};

TEST(Log, LevelFollowsFromTheBeginning) {
  const std::vector<std::pair<std::string_view, Level>> cases{
      {"❌ Cannot open", Level::error},
      {"\u26A0\uFE0F Falling back", Level::warning},
      {"\u26A0 Falling back", Level::warning},
      {"ℹ️ Note", Level::info},
      {"[Remote] ❌", Level::info},
      {"", Level::info},
      {"\xE2\x9A", Level::info}};
  for (const auto& [text, level] : cases) EXPECT_EQ(levelOf(text), level) << text;
}

TEST(Log, OneEventIsOneLineOnStderr) {
  const test::TemporaryFolder folder;
  std::string written;
  {
    const StderrFile file(folder / "err");
    line("🔊 {} at {} Hz", "DAC\nfake ❌ line", 44100);
    line("[Remote] \x1b[31mred\x7f \xff\xfe {}",
         "\xe2\x80\xae"
         "gnp.exe");
    write(Level::debug, "below the minimum");
    setMinimumLevel(Level::error);
    line("⚠️ dropped");
    line("❌ kept");
    setMinimumLevel(Level::info);
    written = file.content();
  }
  EXPECT_EQ(written,
            "🔊 DAC\\nfake ❌ line at 44100 Hz\n"
            "[Remote] \\x1b[31mred\\x7f \\xff\\xfe \\u202egnp.exe\n"
            "❌ kept\n");
}

TEST(Log, LinesOfThreadsDoNotMix) {
  const test::TemporaryFolder folder;
  const std::string body(300, 'x');
  std::string written;
  {
    const StderrFile file(folder / "err");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < 100; ++i) line("{}", body);
      });
    }
    for (auto& thread : threads) thread.join();
    written = file.content();
  }
  std::string expected;
  for (int i = 0; i < 400; ++i) expected += body + "\n";
  EXPECT_EQ(written, expected);
}

TEST(Log, TheSinkIsReplaceableAndMayLog) {
  const test::TemporaryFolder folder;
  std::vector<std::pair<Level, std::string>> got;
  std::string onStderr;
  {
    const StderrFile file(folder / "err");
    setSink([&](Level level, std::string_view text) {
      got.emplace_back(level, text);
      line("from inside");
    });
    line("⚠️ to the sink");
    setSink({});
    line("to stderr");
    onStderr = file.content();
  }
  EXPECT_EQ(got,
            (std::vector<std::pair<Level, std::string>>{{Level::warning, "⚠️ to the sink"}}));
  EXPECT_EQ(onStderr, "from inside\nto stderr\n");
}

}  // namespace
}  // namespace velorin::log
