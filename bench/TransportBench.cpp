// How long a listener waits: from play to the first frame, from a seek to its sound, from the
// choice of another device to its first frame.
#include <stdexcept>

#include "bench/Bench.h"
#include "bench/MusicFile.h"
#include "engine/AudioEngine.h"
#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Preferences.h"
#include "platform/audio/virtual/VirtualAudioHardware.h"
#include "tests/support/DSDFixture.h"

namespace velorin::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPlays = 20;
constexpr int kSeeks = 30;
constexpr auto kTooLong = std::chrono::seconds(5);

/// Notes when the device is first given what it waits for.
class Ear : public VirtualRecorder {
 public:
  /// sign: of the right channel's marker to listen for; 0 for any programme.
  void listenFor(int sign) {
    _sign = sign;
    _heard = false;
  }
  bool hasHeard() const { return _heard; }
  /// After hasHeard().
  Clock::time_point heardAt() const { return _heardAt; }

  void begin(const StreamFormat&) override {}
  void record(const AudioBufferList& list, std::uint32_t, std::uint32_t programme) override {
    if (_heard || programme == 0) return;
    const auto* right = list.channel<float>(1);
    const int sign = _sign;
    const bool isIt = sign == 0 || std::any_of(right, right + programme, [sign](float sample) {
                        return sample * static_cast<float>(sign) > 0.25f;
                      });
    if (!isIt) return;
    _heardAt = Clock::now();
    _heard = true;
  }
  void end() override {}

 private:
  std::atomic<int> _sign{0};
  Clock::time_point _heardAt;  // published by _heard
  std::atomic<bool> _heard{false};
};

/// An engine on a paced device.
struct Player {
  Player(double rate, std::uint32_t bufferFrames) {
    MainThread::instance();
    log::setMinimumLevel(log::Level::error);
    addDevice("virtual", rate, bufferFrames, ear);
    engine.emplace(hardware, preferences, bus);
    engine->setForceHighSampleRate(true);  // or a short buffer would lower the rate
  }
  ~Player() {
    engine.reset();
    MainThread::instance().runReady();
    log::setMinimumLevel(log::Level::info);
  }

  AudioDeviceID addDevice(const char* uid, double rate, std::uint32_t bufferFrames,
                          std::shared_ptr<Ear> listener) {
    VirtualDeviceDescription device;
    device.uid = uid;
    device.rates = {{rate, rate}};
    device.nominalRate = rate;
    device.bufferRange = {64, bufferFrames};
    device.bufferFrames = bufferFrames;
    device.clock = VirtualClock::paced;
    device.recorder = std::move(listener);
    return hardware.addDevice(std::move(device));
  }

  /// Milliseconds from a moment until the ear heard.
  double wait(Clock::time_point since) { return wait(since, *ear); }
  static double wait(Clock::time_point since, const Ear& listener) {
    const bool heard = MainThread::instance().runUntil(
        [&] { return listener.hasHeard(); },
        std::chrono::duration_cast<std::chrono::milliseconds>(kTooLong));
    if (!heard) throw std::runtime_error("nothing was heard");
    return std::chrono::duration<double, std::milli>(listener.heardAt() - since).count();
  }

  std::shared_ptr<Ear> ear = std::make_shared<Ear>();
  VirtualAudioHardware hardware;
  Preferences preferences;
  EventBus bus;
  std::optional<AudioEngine> engine;
};

Track trackOf(const std::filesystem::path& path) {
  Track track;
  track.filePath = path.string();
  return track;
}

void addSpread(BenchReport& report, const std::string& name, std::vector<double> milliseconds,
               double target) {
  std::ranges::sort(milliseconds);
  report.add(name + ", median", milliseconds[milliseconds.size() / 2], "ms");
  report.add(name + ", worst", milliseconds.back(), "ms", atMost(target));
}

const Registration kPlay("play", [](BenchReport& report) {
  const BenchFolder folder;
  for (const MusicSpec& spec : {MusicSpec{.sampleRate = 44'100, .bits = 16, .seconds = 60},
                                MusicSpec{.sampleRate = 192'000, .bits = 24, .seconds = 60}}) {
    const auto path = folder / "music.flac";
    writeMusicFile(path, spec);
    Player player(spec.sampleRate, 4096);
    std::vector<double> times;
    for (int i = 0; i < kPlays; ++i) {
      player.ear->listenFor(0);
      const auto began = Clock::now();
      player.engine->play(trackOf(path));
      times.push_back(player.wait(began));
      player.engine->stop();
    }
    addSpread(report,
              "FLAC " + std::to_string(spec.bits) + "/" + std::to_string(spec.sampleRate / 1000) +
                  ", to the first frame",
              times, 60);
  }
});

/// Seconds of the length that stand at +half and at -half of full modulation in turn, odd ones
/// first at -half, as the marker of MusicSpec does.
void writeOneBitFile(const std::filesystem::path& path, unsigned seconds) {
  constexpr std::size_t kBytesPerSecond = 352'800;
  // Three bits of four are of one kind.
  std::vector<std::uint8_t> channel;
  for (unsigned i = 0; i < seconds; ++i) {
    channel.insert(channel.end(), kBytesPerSecond, i % 2 == 0 ? 0x88 : 0x77);
  }
  test::writeFile(path, test::dsdFile({channel, channel}));
}

const Registration kOneBit("dsd-transport", [](BenchReport& report) {
  const BenchFolder folder;
  const auto path = folder / "music.dsf";
  writeOneBitFile(path, 60);
  constexpr std::uint32_t kBuffer = 4096;
  Player player(88'200, kBuffer);
  std::vector<double> times;
  for (int i = 0; i < kPlays; ++i) {
    player.ear->listenFor(0);
    const auto began = Clock::now();
    player.engine->play(trackOf(path));
    times.push_back(player.wait(began));
    player.engine->stop();
  }
  addSpread(report, "DSD64, to the first frame", times, 60);

  player.engine->play(trackOf(path), 0.2);
  std::vector<double> seeks;
  std::vector<double> restarts;
  for (int i = 0; i < kSeeks; ++i) {
    const bool toOdd = i % 2 == 0;
    const double to = 2 * (i * 7 % 29) + (toOdd ? 1.3 : 0.3);
    player.ear->listenFor(toOdd ? 1 : -1);
    const auto began = Clock::now();
    // A seek, or a track in the place of the one that plays.
    const bool isSeek = i % 4 < 2;
    isSeek ? player.engine->seek(to) : player.engine->play(trackOf(path), to);
    const double waited = player.wait(began);
    (isSeek ? seeks : restarts).push_back(isSeek ? waited - kBuffer / 88.2 : waited);
    MainThread::instance().runUntil([] { return false; },
                                    std::chrono::milliseconds(50 + 13 * i % 97));
  }
  addSpread(report, "DSD64 seek to its sound, beyond a device buffer", seeks, 30);
  addSpread(report, "DSD64 quick restart, to its sound", restarts, 60);
});

const Registration kSeek("seek", [](BenchReport& report) {
  const BenchFolder folder;
  const auto path = folder / "music.flac";
  writeMusicFile(path, {.seconds = 60, .marker = 0.5});
  for (const std::uint32_t buffer : {512u, 4096u}) {
    Player player(44'100, buffer);
    const double bufferMs = buffer / 44.1;
    player.ear->listenFor(0);
    player.engine->play(trackOf(path), 0.2);
    player.wait(Clock::now());
    std::vector<double> times;
    for (int i = 0; i < kSeeks; ++i) {
      // From one kind of second into the middle of one of the other kind, here and there.
      const bool toOdd = i % 2 == 0;
      player.ear->listenFor(toOdd ? 1 : -1);
      const auto began = Clock::now();
      player.engine->seek(2 * (i * 7 % 29) + (toOdd ? 1.3 : 0.3));
      times.push_back(player.wait(began) - bufferMs);
      // Seeks fall at any moment within a buffer.
      MainThread::instance().runUntil([] { return false; },
                                      std::chrono::milliseconds(50 + 13 * i % 97));
    }
    addSpread(report,
              "to its sound, beyond a device buffer of " + std::to_string(buffer) + " frames",
              times, 30);
  }
});

// Both devices run at the track's rate: the time that a device takes to change its rate is its own.
const Registration kDeviceSwitch("device-switch", [](BenchReport& report) {
  const BenchFolder folder;
  const auto path = folder / "music.flac";
  writeMusicFile(path, {.seconds = 60});
  Player player(44'100, 4096);
  const auto otherEar = std::make_shared<Ear>();
  const AudioDeviceID first = player.engine->currentDevice();
  const AudioDeviceID other = player.addDevice("other", 44'100, 4096, otherEar);
  player.ear->listenFor(0);
  player.engine->play(trackOf(path), 10);
  player.wait(Clock::now());
  std::vector<double> times;
  for (int i = 0; i < kPlays; ++i) {
    const bool toOther = i % 2 == 0;
    Ear& ear = toOther ? *otherEar : *player.ear;
    ear.listenFor(0);
    const auto began = Clock::now();
    player.engine->selectOutputDevice(toOther ? other : first);
    times.push_back(Player::wait(began, ear));
  }
  addSpread(report, "to another device's first frame", times, 60);
});

}  // namespace
}  // namespace velorin::bench
