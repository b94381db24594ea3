// How long the listener waits for the player itself, with a queue of 100,000 tracks in it.
#include <fmt/format.h>

#include <stdexcept>

#include "bench/Bench.h"
#include "bench/Memory.h"
#include "bench/MusicFile.h"
#include "engine/AudioEngine.h"
#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Preferences.h"
#include "platform/audio/virtual/VirtualAudioHardware.h"
#include "session/PlayerState.h"
#include "session/SkipBurst.h"

namespace velorin::bench {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kQueue = 100'000;
constexpr int kPlays = 20;
constexpr int kBursts = 10;
constexpr int kEdits = 20;
constexpr double kMainThreadBudgetMs = 4;

/// Notes when programme of the next stream is heard first.
class Ear : public VirtualRecorder {
 public:
  void listen() {
    _isNew = false;
    _heard = false;
  }
  bool hasHeard() const { return _heard; }
  Clock::time_point heardAt() const { return _heardAt; }

  void begin(const StreamFormat&) override { _isNew = true; }
  void record(const AudioBufferList&, std::uint32_t, std::uint32_t programme) override {
    if (_heard || !_isNew || programme == 0) return;
    _heardAt = Clock::now();
    _heard = true;
  }
  void end() override {}

 private:
  Clock::time_point _heardAt;  // published by _heard
  std::atomic<bool> _isNew{false};
  std::atomic<bool> _heard{true};
};

double ms(Clock::duration time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

TrackInfo trackOf(const std::filesystem::path& path, std::size_t i) {
  TrackInfo info;
  info.track.id = static_cast<std::int64_t>(i + 1);
  info.track.title = fmt::format("A title of usual length {}", i);
  info.track.filePath = path.string();
  info.track.duration = 60;
  info.album.title = fmt::format("An album of usual length {}", i / 12);
  info.artist.name = fmt::format("An artist {}", i / 60);
  return info;
}

/// A player on a paced device; its preferences are in a file.
struct Rig {
  Rig() : preferences(folder / "preferences.plist") {
    log::setMinimumLevel(log::Level::error);
    MainThread::instance();
    VirtualDeviceDescription device = pacedNullOutput();
    device.recorder = ear;
    hardware.addDevice(std::move(device));
    engine.emplace(hardware, preferences, bus);
    player.emplace(*engine, preferences, bus, PlayerServices());
    waitFor([this] { return player->sessionRestored(); });
    for (const char* name : {"1.flac", "2.flac"}) writeMusicFile(folder / name, {.seconds = 60});
    std::vector<TrackInfo> tracks;
    for (std::size_t i = 0; i < kQueue; ++i) {
      tracks.push_back(trackOf(folder / (i % 2 == 0 ? "1.flac" : "2.flac"), i));
    }
    player->playTracks(std::move(tracks), 0);
    waitFor([this] { return player->state() == PlaybackState::playing; });
  }
  ~Rig() {
    player.reset();
    engine.reset();
    MainThread::instance().runReady();
    log::setMinimumLevel(log::Level::info);
  }

  static void waitFor(const std::function<bool()>& condition) {
    if (!MainThread::instance().runUntil(condition, milliseconds(20'000))) {
      throw std::runtime_error("the player does not get there");
    }
  }
  static void pass(milliseconds time) {
    MainThread::instance().runUntil([] { return false; }, time);
  }
  /// Milliseconds from then to the first sound after listen().
  double toSound(Clock::time_point since) {
    waitFor([this] { return ear->hasHeard(); });
    return ms(ear->heardAt() - since);
  }

  BenchFolder folder;
  std::shared_ptr<Ear> ear = std::make_shared<Ear>();
  VirtualAudioHardware hardware;
  Preferences preferences;
  EventBus bus;
  std::optional<AudioEngine> engine;
  std::optional<PlayerState> player;
};

void addSpread(BenchReport& report, const std::string& name, std::vector<double> times,
               double target) {
  std::ranges::sort(times);
  report.add(name + ", median", times[times.size() / 2], "ms");
  report.add(name + ", p95", times[times.size() * 95 / 100], "ms", atMost(target));
}

void measureStarts(BenchReport& report, Rig& rig) {
  std::vector<double> times;
  for (int i = 0; i < kPlays; ++i) {
    rig.player->stop();
    rig.waitFor([&] { return rig.player->state() == PlaybackState::stopped; });
    rig.pass(milliseconds(20));
    rig.ear->listen();
    const auto began = Clock::now();
    rig.player->playFromTimeline(static_cast<std::size_t>(i * 37));
    times.push_back(rig.toSound(began));
  }
  addSpread(report, "a track of the queue, to its first frame", times, 60);
}

void measureBursts(BenchReport& report, Rig& rig) {
  std::vector<double> times;
  int starts = 0;
  for (int i = 0; i < kBursts; ++i) {
    const int before = rig.hardware.callCount(VirtualOperation::start);
    const auto track = rig.player->timelineIndex();
    rig.ear->listen();
    Clock::time_point lastTap;
    for (int tap = 0; tap < 10; ++tap) {
      rig.pass(milliseconds(30));
      lastTap = Clock::now();
      rig.player->nextDebounced();
    }
    times.push_back(rig.toSound(lastTap) - ms(SkipBurst::kQuiet));
    rig.waitFor([&] { return !rig.player->isLoading(); });
    if (rig.player->timelineIndex() != track + 10) throw std::runtime_error("another track");
    starts = std::max(starts, rig.hardware.callCount(VirtualOperation::start) - before);
  }
  report.add("ten presses of next, starts of the output", starts, "", atMost(1));
  addSpread(report, "the last of ten presses to its sound, beyond the wait of 300 ms", times, 60);
}

void measureMainThread(BenchReport& report, Rig& rig) {
  const auto worstOf = [&](const std::string& name, const std::function<void(int)>& work) {
    double worst = 0;
    double sum = 0;
    for (int i = 0; i < kEdits; ++i) {
      const auto began = Clock::now();
      work(i);
      const double took = ms(Clock::now() - began);
      worst = std::max(worst, took);
      sum += took;
    }
    report.add(name + ", mean", sum / kEdits, "ms", atMost(kMainThreadBudgetMs));
    report.add(name + ", worst", worst, "ms");
  };
  worstOf("appending a track", [&](int i) {
    rig.player->appendToTimeline(
        {trackOf(rig.folder / "1.flac", kQueue + static_cast<std::size_t>(i))});
  });
  worstOf("moving a track through the queue", [&](int i) {
    rig.player->moveInTimeline(rig.player->timeline().size() - 1,
                               static_cast<std::size_t>(rig.player->timelineIndex() + 2 + i));
  });
  worstOf("shuffling and back", [&](int) {
    rig.player->toggleShuffle();
    rig.player->toggleShuffle();
  });
  // The session is written a second after an edit: the longest turn of the main loop meanwhile.
  rig.pass(milliseconds(1500));
  double worst = 0;
  for (int i = 0; i < 3; ++i) {
    rig.player->removeFromTimeline(rig.player->timeline().size() - 1);
    for (const auto until = Clock::now() + milliseconds(1500); Clock::now() < until;) {
      const auto began = Clock::now();
      const std::size_t ran = MainThread::instance().runReady();
      if (ran > 0) worst = std::max(worst, ms(Clock::now() - began));
      std::this_thread::sleep_for(milliseconds(1));
    }
  }
  report.add("writing the session after an edit, longest turn of the main loop", worst, "ms",
             atMost(kMainThreadBudgetMs));
  report.add("the same at the end of the program, onto the disk",
             1000 * secondsOf(3, [&] { rig.player->saveSession(); }), "ms");
}

const Registration kPlayer("player", [](BenchReport& report) {
  const double before = statusMB("RssAnon");
  Rig rig;
  report.add("own memory of a player with 100,000 tracks and its ring",
             statusMB("RssAnon") - before, "MiB");
  measureStarts(report, rig);
  measureBursts(report, rig);
  measureMainThread(report, rig);
});

}  // namespace
}  // namespace velorin::bench
