// `velorin` as the player of a user: one at a time, reached by the others, ended in order.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cmath>
#include <csignal>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Program.h"
#include "foundation/FileDescriptor.h"
#include "support/ChildProcess.h"
#include "support/Eventually.h"
#include "support/FlacFixture.h"
#include "support/MountNamespace.h"
#include "support/MusicTree.h"
#include "support/StallingFileSystem.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Clock = std::chrono::steady_clock;

const auto* const kNamespace =
    testing::AddGlobalTestEnvironment(new MountNamespace);  // NOLINT: gtest owns it

constexpr int kColumns = 200;
constexpr std::chrono::seconds kLongestEnd{2};

class PlayerRun : public testing::Test {
 protected:
  PlayerRun() {
    ::setenv("VELORIN_HOME", (_home / "home").c_str(), 1);
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    fs::create_directory(music());
    FlacFixture::make({.channels = 1, .sampleRate = 8000, .frames = 8000 * 60})
        .write(music() / "1.flac");
  }
  ~PlayerRun() override {
    ::unsetenv("VELORIN_HOME");
    ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  }

  fs::path music() const { return _home / "music"; }
  fs::path song(const std::string& name = "1.flac") const {
    if (!fs::exists(music() / name)) fs::copy_file(music() / "1.flac", music() / name);
    return music() / name;
  }
  static std::vector<std::string> player(const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments{"run", "--audio", "virtual", "-v"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  static json status() {
    return json::parse(run({"control", "status", "--json"}).out, nullptr, false);
  }
  /// Waits until a field of the status has the value.
  static bool becomes(const char* key, const json& value) {
    return eventually([&] {
      const json now = status();
      return now.is_object() && now.at(key) == value;
    });
  }
  static bool plays(const std::string& title) {
    return eventually([&] {
      const json now = status();
      return now.is_object() && now.at("state") == "playing" && !now.at("loading") &&
             now.at("track").at("title") == title;
    });
  }
  /// Seconds in the preference file; -1 while there are none.
  double storedPosition() const {
    const std::string key = "<key>lastTrackPosition</key>";
    std::ifstream file(_home / "home/config/preferences.plist");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    const std::size_t at = text.find("<real>", text.find(key));
    return at == std::string::npos ? -1 : std::strtod(text.c_str() + at + 6, nullptr);
  }
  static void endsInTime(TerminalRun& program, int signal) {
    const auto begin = Clock::now();
    program.signal(signal);
    const auto code = program.waitForExit(std::chrono::seconds(5));
    EXPECT_LT(Clock::now() - begin, kLongestEnd) << program.screen();
    EXPECT_TRUE(code.has_value()) << program.screen();
  }

  const TemporaryFolder _home;
};

TEST_F(PlayerRun, OfManyStartsOneBecomesThePlayer) {
  constexpr int kStarts = 6;
  // What a killed player leaves behind is in nobody's way.
  fs::create_directories(_home / "home/run");
  std::ofstream(_home / "home/run/player.sock") << "stale";
  std::ofstream(_home / "home/run/player.lock");
  ChildProcess starts[kStarts];
  for (ChildProcess& start : starts) {
    ASSERT_TRUE(start.start({VELORIN_PROGRAM, "--audio", "virtual", song()}, _home / "log"));
  }
  const auto running = [&] {
    return std::count_if(std::begin(starts), std::end(starts),
                         [](ChildProcess& start) { return start.isRunning(); });
  };
  EXPECT_TRUE(eventually([&] { return running() <= 1; }));
  EXPECT_EQ(running(), 1);
  EXPECT_TRUE(plays("1"));
  struct stat socket {};
  ASSERT_EQ(::stat((_home / "home/run/player.sock").c_str(), &socket), 0);
  EXPECT_EQ(socket.st_mode & 0777, 0600U);

  const Outcome bare = run({});
  EXPECT_EQ(bare.exitCode, 0);
  EXPECT_NE(bare.out.find("running already"), std::string::npos) << bare.out << bare.err;
  EXPECT_EQ(run({"control", "quit"}).exitCode, 0);
  EXPECT_TRUE(eventually([&] { return running() == 0; }));
  const Outcome nobody = run({"control", "next"});
  EXPECT_EQ(nobody.exitCode, 1);
  EXPECT_NE(nobody.err.find("no player is running"), std::string::npos) << nobody.err;
}

TEST_F(PlayerRun, TellsItsSignalPathAndTakesSettings) {
  const auto says = [](const std::vector<std::string>& arguments, int code, const char* text) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, code) << testing::PrintToString(arguments);
    EXPECT_NE((outcome.out + outcome.err).find(text), std::string::npos)
        << testing::PrintToString(arguments) << outcome.out << outcome.err;
  };
  says({"path"}, 1, "no player is running");
  TerminalRun program(player(), kColumns);
  ASSERT_TRUE(eventually([] { return status().is_object(); })) << program.screen();
  says({"path", "--json"}, 1, "nothing is playing");
  EXPECT_EQ(run({"open", song()}).exitCode, 0);
  ASSERT_TRUE(plays("1"));

  says({"path"}, 0, "FLAC Decoder");
  says({"control", "volume", "0.25"}, 0, "");
  const json path = json::parse(run({"path", "--json"}).out);
  EXPECT_EQ(path.at("stages").front().at("format"), "16-bit / 8 kHz");
  EXPECT_EQ(path.at("stages").at(2).at("format"), "25%");
  EXPECT_EQ(path.at("quality"), "enhanced");
  EXPECT_FALSE(path.at("bitPerfect").get<bool>());
  EXPECT_EQ(path.at("device").at("backend"), "virtual");

  const json device = json::parse(run({"devices", "--audio", "virtual", "--json"}).out).at(0);
  says({"control", "device", device.at("uid")}, 0, "playing on ");
  says({"control", "device", device.at("name")}, 0, "playing on ");
  says({"control", "device", "default"}, 0, "following the system's default");
  says({"control", "device", "no-such"}, 1, "velorin devices");
  EXPECT_EQ(run({"control", "quit"}).exitCode, 0);
  EXPECT_EQ(program.waitForExit(), 0);
}

TEST_F(PlayerRun, FilesOfAnyNameAreHandedOver) {
  TerminalRun program(player(), kColumns);
  const fs::path odd = song("b %41 \xff\n.flac");
  fs::create_directory(_home / "folder");
  for (const char* const name : {"z.flac", "y.flac"}) {
    fs::copy_file(song(), _home / "folder" / name);
  }
  ASSERT_TRUE(becomes("count", 0)) << program.screen();
  const Outcome now = run({song(), (music() / ".." / "music" / odd.filename())});
  EXPECT_EQ(now.out, "playing 2 files\n") << now.err;
  EXPECT_TRUE(plays("1")) << status();
  EXPECT_TRUE(becomes("count", 2));
  EXPECT_EQ(run({"open", "--later", _home / "folder"}).out, "2 files to play later\n");
  EXPECT_EQ(run({"open", "--next", song("next.flac")}).out, "1 file to play next\n");
  EXPECT_TRUE(becomes("count", 5)) << status();
  const char* const titles[] = {"next", "b %41 \xEF\xBF\xBD\n", "y", "z"};
  for (const char* const title : titles) {
    EXPECT_EQ(run({"control", "next"}).exitCode, 0);
    EXPECT_TRUE(plays(title)) << title << status();
  }
  EXPECT_EQ(run({"control", "pause"}).exitCode, 0);
  EXPECT_TRUE(becomes("state", "paused"));
  EXPECT_EQ(run({"control", "play-pause"}).exitCode, 0);
  EXPECT_TRUE(becomes("state", "playing"));
  EXPECT_EQ(run({"control", "stop"}).exitCode, 0);
  EXPECT_TRUE(becomes("state", "stopped"));

  const Outcome wrong = run({"open", _home / "none.flac"});
  EXPECT_EQ(wrong.exitCode, 1);
  EXPECT_NE(wrong.err.find("no such file"), std::string::npos) << wrong.err;
  fs::create_directory(_home / "empty");
  const Outcome empty = run({"open", _home / "empty"});
  EXPECT_EQ(empty.exitCode, 1);
  EXPECT_NE(empty.err.find("no music in this folder"), std::string::npos) << empty.err;
}

TEST_F(PlayerRun, NonsenseOnTheSocketHarmsNobody) {
  TerminalRun program(player(), kColumns);
  ASSERT_TRUE(becomes("state", "stopped")) << program.screen();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = _home / "home/run/player.sock";
  std::copy(path.begin(), path.end(), address.sun_path);
  const auto connect = [&] {
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    return socket;
  };
  const FileDescriptor silent = connect();
  const FileDescriptor half = connect();
  EXPECT_GT(::send(half.get(), "{\"velorin\":1,", 13, MSG_NOSIGNAL), 0);
  {
    const FileDescriptor gone = connect();
    EXPECT_GT(::send(gone.get(), "{\"velorin\":1,\"action\":\"status\"}\n", 32, MSG_NOSIGNAL), 0);
  }
  const FileDescriptor nonsense = connect();
  EXPECT_GT(::send(nonsense.get(), "\xff\n", 2, MSG_NOSIGNAL), 0);
  char answer[256] = {};
  EXPECT_GT(::recv(nonsense.get(), answer, sizeof(answer) - 1, 0), 0);
  EXPECT_NE(std::string(answer).find("\"ok\":false"), std::string::npos) << answer;
  EXPECT_EQ(status().at("state"), "stopped");
  endsInTime(program, SIGTERM);
}

TEST_F(PlayerRun, SignalsEndItInTimeAndKeepTheSession) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    TerminalRun program(player({song(), song("2.flac")}), kColumns);
    ASSERT_TRUE(plays("1")) << program.screen();
    EXPECT_EQ(run({"control", "next"}).exitCode, 0);
    ASSERT_TRUE(plays("2")) << program.screen();
    endsInTime(program, signal);
    EXPECT_FALSE(fs::exists(_home / "home/run/player.sock"));

    TerminalRun again(player(), kColumns);
    EXPECT_TRUE(becomes("count", 2)) << again.screen();
    const json restored = status();
    EXPECT_EQ(restored.at("state"), "stopped");
    EXPECT_EQ(restored.at("index"), 1);
    EXPECT_EQ(restored.at("track").at("title"), "2");
    endsInTime(again, SIGTERM);
  }
}

TEST_F(PlayerRun, AKilledPlayerComesBackWhereItWas) {
  double paused = 0;
  {
    TerminalRun program(player({song(), song("2.flac")}), kColumns);
    ASSERT_TRUE(plays("1")) << program.screen();
    EXPECT_EQ(run({"control", "next"}).exitCode, 0);
    ASSERT_TRUE(plays("2")) << program.screen();
    ASSERT_TRUE(eventually([] { return status().at("position") > 1.0; }));
    EXPECT_EQ(run({"control", "pause"}).exitCode, 0);
    ASSERT_TRUE(becomes("state", "paused"));
    paused = status().at("position");
    ASSERT_TRUE(eventually([&] { return std::abs(storedPosition() - paused) < 0.1; }));
    program.signal(SIGKILL);
    EXPECT_FALSE(program.waitForExit().has_value());
  }
  TerminalRun program(player(), kColumns);
  ASSERT_TRUE(becomes("count", 2)) << program.screen();
  const json restored = status();
  EXPECT_EQ(restored.at("index"), 1);
  EXPECT_EQ(restored.at("track").at("title"), "2");
  EXPECT_NEAR(restored.at("position"), paused, 0.1);
  EXPECT_EQ(run({"control", "play"}).exitCode, 0);
  EXPECT_TRUE(plays("2"));
  endsInTime(program, SIGTERM);
}

TEST_F(PlayerRun, EndsInTimeWhileItScans) {
  fs::create_directory(_home / "tree");
  ASSERT_EQ(run({"library", "add", _home / "tree"}).exitCode, 0);
  writeMusicTree(4000, _home / "tree");
  TerminalRun program(player(), kColumns);
  ASSERT_TRUE(program.waitFor("Memory at scan start")) << program.screen();
  endsInTime(program, SIGTERM);
}

/// True when a process has ended, also where the kernel keeps it for a read that was handed to a
/// file system already.
bool hasEnded(pid_t process) {
  std::string stat;
  std::getline(std::ifstream(fmt::format("/proc/{}/stat", process)), stat);
  const std::size_t name = stat.rfind(')');
  return name == std::string::npos || stat.compare(name + 2, 1, "Z") == 0;
}

TEST_F(PlayerRun, EndsInTimeWhileAFileDoesNotAnswer) {
  fs::create_directory(_home / "mount");
  song("2.flac");
  StallingFileSystem share(music(), _home / "mount");
  if (!share.isMounted()) GTEST_SKIP() << "may not mount";
  ChildProcess program;
  ASSERT_TRUE(program.start({VELORIN_PROGRAM, "run", "--audio", "virtual", _home / "mount/1.flac",
                             _home / "mount/2.flac"},
                            _home / "log"));
  ASSERT_TRUE(plays("1"));
  share.hang();
  EXPECT_EQ(run({"control", "next"}).exitCode, 0);
  ASSERT_TRUE(eventually([] {
    const json now = status();
    return now.at("track").at("title") == "2" && now.at("loading") == true;
  }));
  program.signal(SIGTERM);
  // By its deadline, 0.2 s before the longest end: too near for a busy machine to be measured.
  EXPECT_TRUE(eventually([&] { return hasEnded(program.pid()); }, 2 * kLongestEnd));
  share.release();
}

/// Times that the threads of a process went to sleep so far.
long sleepsOf(pid_t process) {
  long sleeps = 0;
  for (const auto& thread : fs::directory_iterator(fmt::format("/proc/{}/task", process))) {
    std::ifstream status(thread.path() / "status");
    for (std::string word; status >> word;) {
      long count = 0;
      if (word == "voluntary_ctxt_switches:" && status >> count) sleeps += count;
    }
  }
  return sleeps;
}

// A timer that ticks while nothing plays would wake it in each of the intervals.
TEST_F(PlayerRun, AQuietPlayerSleeps) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer has a thread of its own that never rests";
#endif
  ChildProcess program;
  ASSERT_TRUE(program.start({VELORIN_PROGRAM, "run", "--audio", "virtual", song()}, _home / "log"));
  ASSERT_TRUE(plays("1"));
  for (const char* const command : {"pause", "stop"}) {
    EXPECT_EQ(run({"control", command}).exitCode, 0);
    EXPECT_TRUE(eventually(
        [&] {
          const long before = sleepsOf(program.pid());
          std::this_thread::sleep_for(std::chrono::milliseconds(1200));
          return sleepsOf(program.pid()) == before;
        },
        std::chrono::seconds(15)))
        << command;
  }
}

TEST_F(PlayerRun, FoldersThatAnotherCommandAddsAreWatchedAtOnce) {
  TerminalRun program(player(), kColumns);
  ASSERT_TRUE(eventually([] { return status().is_object(); })) << program.screen();
  EXPECT_EQ(run({"library", "add", music()}).exitCode, 0);
  EXPECT_TRUE(program.waitFor("watching 1 path(s)")) << program.screen();
}

TEST_F(PlayerRun, TellsTheServiceManager) {
  const FileDescriptor manager(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = _home / "notify";
  std::copy(path.begin(), path.end(), address.sun_path);
  ASSERT_EQ(::bind(manager.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  const timeval patience{10, 0};
  ::setsockopt(manager.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
  const auto hears = [&](const std::string& wanted) {
    char message[512];
    ssize_t size = 0;
    while ((size = ::recv(manager.get(), message, sizeof(message), 0)) > 0) {
      if (std::string(message, static_cast<std::size_t>(size)).starts_with(wanted)) return true;
    }
    return false;
  };
  ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
  ::setenv("WATCHDOG_USEC", "200000", 1);
  TerminalRun program(player({song()}), kColumns);
  ::unsetenv("NOTIFY_SOCKET");
  ::unsetenv("WATCHDOG_USEC");
  EXPECT_TRUE(hears("READY=1")) << program.screen();
  EXPECT_TRUE(hears("STATUS=Playing: 1")) << program.screen();
  EXPECT_TRUE(hears("WATCHDOG=1"));
  program.signal(SIGTERM);
  EXPECT_TRUE(hears("STOPPING=1"));
  EXPECT_EQ(program.waitForExit(), 0) << program.screen();
}

}  // namespace
}  // namespace velorin::test
