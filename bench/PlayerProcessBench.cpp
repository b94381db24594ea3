// What the program costs while it waits and while it plays: `velorin run` as a process of its own,
// with a library of 100,000 tracks, all of them in its queue, on the null output.
#include <fmt/format.h>
#include <time.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "bench/Bench.h"
#include "bench/LibraryFixture.h"
#include "bench/MusicFile.h"
#include "dsp/DSPEffectType.h"
#include "foundation/Log.h"
#include "foundation/Paths.h"
#include "foundation/Preferences.h"
#include "library/LibraryFile.h"
#include "library/schema/Migrator.h"
#include "session/SessionStore.h"
#include "support/ChildProcess.h"
#include "support/SyntheticLibrary.h"

namespace velorin::bench {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;

constexpr std::size_t kTracks = 100'000;
constexpr seconds kIdle{60};
constexpr seconds kPlaying{20};
constexpr seconds kSettles{6};
constexpr double kMiB = 1048576;

/// Processor time of a process and all its threads, milliseconds.
double processorMsOf(pid_t pid) {
  clockid_t clock = 0;
  timespec time{};
  if (::clock_getcpuclockid(pid, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
    throw std::runtime_error("the player has ended");
  }
  return 1e3 * static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_nsec);
}

double memoryOf(pid_t pid, const std::string& name) {
  std::ifstream status(fmt::format("/proc/{}/status", pid));
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":")) return std::stod(line.substr(name.size() + 1)) / 1024;
  }
  throw std::runtime_error("the player has ended");
}

/// Milliseconds of processor time that pass in that time.
double cpuMs(pid_t pid, seconds time) {
  const double before = processorMsOf(pid);
  std::this_thread::sleep_for(time);
  return processorMsOf(pid) - before;
}

/// A home folder for the program; other programs find it through VELORIN_HOME.
class Home {
 public:
  Home() {
    ::setenv("VELORIN_HOME", (_folder / "home").c_str(), 1);
    // Nobody's desktop is to hear of this.
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
  }
  ~Home() {
    ::unsetenv("VELORIN_HOME");
    ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  }

  /// A library in which the track that waits to be played is a real one, and the session.
  void fill() {
    writeMusicFile(song(), {.seconds = 120});
    fs::create_directories(paths::dataDirectory());
    const auto file = paths::dataDirectory() / "library.sqlite";
    std::vector<std::int64_t> ids;
    {
      const auto queue = std::make_shared<ConnectionQueue>(file);
      queue->withConnection([](sqlite::Connection& connection) { schema::migrate(connection); });
      const DatabaseHandle database(queue);
      test::SyntheticLibrary({.tracks = kTracks}).fill(database);
      ids = database.read([](sqlite::Reader& reader) {
        return reader.column<std::int64_t>("SELECT id FROM tracks ORDER BY id");
      });
      database.write([&](sqlite::Writer& writer) {
        return writer.run("UPDATE tracks SET filePath = ?, duration = 120 WHERE id = ?",
                          song().string(), ids.front());
      });
    }
    fs::create_directories(paths::configDirectory());
    Preferences preferences(paths::preferencesFile());
    SavedSession session;
    session.trackId = ids.front();
    session.duration = 120;
    session.queueIds = std::move(ids);
    if (!SessionStore(preferences).save(session)) throw std::runtime_error("no session");
  }

  fs::path song() const { return _folder / "song.flac"; }
  fs::path operator/(const char* name) const { return _folder / name; }

 private:
  BenchFolder _folder;
};

void control(const char* what) {
  test::runProgram({VELORIN_PROGRAM, "control", what});
}

bool isPlaying() {
  const std::string status = test::runProgram({VELORIN_PROGRAM, "control", "status", "--json"});
  return status.find("\"playing\"") != std::string::npos;
}

void waitUntilPlaying() {
  for (int i = 0; i < 100; ++i) {
    if (isPlaying()) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  throw std::runtime_error("the player does not play");
}

const Registration kIdlePlayer("player-idle", [](BenchReport& report) {
  Home home;
  home.fill();
  test::ChildProcess player;
  if (!player.start({VELORIN_PROGRAM, "run", "--headless", "--audio", "virtual"}, home / "log")) {
    throw std::runtime_error("the player does not start");
  }
  std::this_thread::sleep_for(kSettles);
  report.add("resident with 100,000 tracks, stopped", memoryOf(player.pid(), "VmRSS"), "MiB",
             atMost(90));
  report.add("of these its own", memoryOf(player.pid(), "RssAnon"), "MiB");
  report.add("stopped, processor time in a minute", cpuMs(player.pid(), kIdle), "ms", atMost(10));

  control("play");
  waitUntilPlaying();
  // The ring is full when the decoder sleeps.
  std::this_thread::sleep_for(kSettles);
  control("pause");
  std::this_thread::sleep_for(kSettles);
  constexpr double kRing = (1 << 21) * 2 * 4 / kMiB;  // 47 s at 44.1 kHz
  report.add("resident, paused, but for the ring of 16 MiB",
             memoryOf(player.pid(), "VmRSS") - kRing, "MiB", atMost(90));
  report.add("paused, processor time in a minute", cpuMs(player.pid(), kIdle), "ms", atMost(10));
  player.end();
});

std::string chainOfAll() {
  std::string entries;
  for (const DSPEffectType type : allEffectTypes()) {
    entries += fmt::format("{}{{\"effectType\": \"{}\"}}", entries.empty() ? "" : ", ",
                           namesOf(type).rawValue);
  }
  return "{\"entries\": [" + entries + "]}";
}

const Registration kPlayingPlayer("player-cpu", [](BenchReport& report) {
  const Home home;
  std::ofstream(home / "all.json") << chainOfAll();
  for (const auto& [rate, bits, target] :
       {std::tuple(44'100u, 16u, 0.5), std::tuple(96'000u, 24u, 1.0),
        std::tuple(192'000u, 24u, 2.0)}) {
    writeMusicFile(home.song(), {.sampleRate = rate, .bits = bits, .seconds = 90});
    for (const bool withEffects : {false, true}) {
      // `play` takes a chain; without one it is measured as `run` in the background.
      std::vector<std::string> command{VELORIN_PROGRAM, withEffects ? "play" : "run", "--audio",
                                       "virtual", home.song().string()};
      if (withEffects) command.insert(command.end(), {"--chain", (home / "all.json").string()});
      test::ChildProcess player;
      if (!player.start(command, home / "log")) throw std::runtime_error("no player");
      if (!withEffects) waitUntilPlaying();
      // The ring fills at the start, once; then it is kept full.
      std::this_thread::sleep_for(kSettles);
      const double share =
          cpuMs(player.pid(), kPlaying) / (10.0 * static_cast<double>(kPlaying.count()));
      player.end();
      const std::string name = fmt::format("playing FLAC {}/{:g}", bits, rate / 1000.0);
      if (withEffects) {
        report.add(name + " through all 18 effects, as they are at first", share, "% of a core");
      } else {
        report.add(name, share, "% of a core", atMost(target));
      }
    }
  }
});

}  // namespace
}  // namespace velorin::bench
