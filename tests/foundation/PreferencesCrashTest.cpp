// Kills a process in the middle of its writes, many times, and looks at what it left behind.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include "foundation/Log.h"
#include "foundation/PreferencesState.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

class Writer {
 public:
  Writer(const std::filesystem::path& file, std::int64_t first) : _first(first) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::string program = PREFERENCES_WRITER;
    std::string path = file;
    std::string number = std::to_string(first);
    std::array<char*, 4> arguments{program.data(), path.data(), number.data(), nullptr};
    const int failed =
        ::posix_spawn(&_process, program.c_str(), &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    _reports = ends[0];
    if (failed != 0) throw std::runtime_error("cannot start " + program);
  }

  ~Writer() { ::close(_reports); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  /// Lets it write some states, then kills it within the following one. Returns the number of
  /// the last state that it has reported as being on disk.
  std::int64_t runAndKill(int states, std::chrono::microseconds longer) {
    std::int64_t reported = 0;
    while (reported < states && readReport() > 0) ++reported;
    const auto until = std::chrono::steady_clock::now() + longer;
    while (std::chrono::steady_clock::now() < until) {
    }
    ::kill(_process, SIGKILL);
    int status = 0;
    ::waitpid(_process, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status)) << "the writer gave up by itself";
    while (readReport() > 0) ++reported;
    return _first + reported - 1;
  }

 private:
  ssize_t readReport() {
    char byte = 0;
    return ::read(_reports, &byte, 1);
  }

  std::int64_t _first;
  pid_t _process = 0;
  int _reports = -1;
};

TEST(PreferencesCrash, AKillLeavesTheOldFileOrTheNew) {
  constexpr int kRounds = 200;
  const test::TemporaryFolder folder;
  const auto file = folder / "preferences.plist";
  const log::Capture capture;
  std::mt19937 random(20240501);
  std::int64_t first = 1;
  int killedInsideAWrite = 0;
  for (int round = 0; round < kRounds; ++round) {
    Writer writer(file, first);
    const std::int64_t reported = writer.runAndKill(1 + static_cast<int>(random() % 3),
                                                    std::chrono::microseconds(random() % 4000));

    const Preferences store(file);
    const auto state = store.getMap("state");
    ASSERT_TRUE(state) << "round " << round;
    const auto number = std::get<std::int64_t>(state->at("number").value);
    // Old or new: the last state that was reported, or the one that was being written.
    EXPECT_GE(number, reported) << "round " << round;
    EXPECT_LE(number, reported + 1) << "round " << round;
    EXPECT_EQ(*state, test::stateOf(number)) << "round " << round;
    killedInsideAWrite += std::filesystem::exists(folder / ".preferences.plist.new");
    first = number + 1;
  }
  EXPECT_TRUE(capture.lines().empty()) << capture.lines().front();
  // Else the kills fell elsewhere and the rounds above prove nothing.
  EXPECT_GT(killedInsideAWrite, 0);
  RecordProperty("killedInsideAWrite", killedInsideAWrite);
}

}  // namespace
}  // namespace velorin
