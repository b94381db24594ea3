// The PipeWire backend against a real server: every bit, every loss, every wait bounded.
#include "platform/audio/pipewire/PipeWireAudioHardware.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "foundation/Log.h"
#include "foundation/Realtime.h"
#include "foundation/SerialQueue.h"
#include "platform/audio/pipewire/PipeWireVolume.h"
#include "support/Eventually.h"
#include "support/PipeWireMonitorRecorder.h"
#include "support/PipeWireSession.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using test::eventually;
using test::MonitorFormat;
using test::PipeWireMonitorRecorder;
using test::PipeWireSession;
using Clock = std::chrono::steady_clock;

// A 24-bit sample that depends on frame and channel alone and is never zero.
std::int32_t sample24(std::uint64_t frame, std::uint32_t channel) {
  std::uint64_t x = (frame + 1) * 0x9E3779B97F4A7C15u + channel * 0xD1B54A32D192ED03u;
  x ^= x >> 29;
  x *= 0xBF58476D1CE4E5B9u;
  x ^= x >> 32;
  const auto value = static_cast<std::int32_t>(static_cast<std::uint32_t>(x)) >> 8;
  return value == 0 ? 1 : value;
}

std::int16_t sample16(std::uint64_t frame, std::uint32_t channel) {
  const auto value = static_cast<std::int16_t>(sample24(frame, channel) >> 8);
  return value == 0 ? std::int16_t{1} : value;
}

template <class Sample>
Sample sampleOf(std::uint64_t frame, std::uint32_t channel) {
  if constexpr (std::is_same_v<Sample, std::int16_t>) return sample16(frame, channel);
  const std::int32_t sample = sample24(frame, channel);
  if constexpr (std::is_same_v<Sample, float>) return static_cast<float>(sample) / 8388608.0f;
  return static_cast<Sample>(static_cast<std::uint32_t>(sample) << 8);
}

enum class Kind { float32, int16, int24in32 };

StreamFormat formatOf(Kind kind, double rate, std::uint32_t channels = 2) {
  StreamFormat format = StreamFormat::planarFloat(rate, channels);
  if (kind == Kind::float32) return format;
  format.formatFlags = kPCMSignedInteger | kPCMNonInterleaved;
  if (kind == Kind::int16) {
    format.formatFlags |= kPCMPacked;
    format.bitsPerChannel = 16;
    format.bytesPerFrame = format.bytesPerPacket = 2;
  }
  return format;
}

// Plays the pattern and notes how it was asked.
struct Player {
  explicit Player(Kind k = Kind::float32) : kind(k) {}

  const Kind kind;
  std::atomic<std::uint64_t> frames = 0;
  std::atomic<std::uint64_t> calls = 0;
  std::atomic<std::uint32_t> largest = 0;
  std::atomic<bool> closed = false;
  std::atomic<bool> calledWhenClosed = false;
  std::atomic<bool> outsideOfScope = false;
  std::atomic<bool> onMainLoop = false;
  std::atomic<bool> inside = false;
  std::atomic<int> lost = 0;
  std::atomic<int> xruns = 0;
  std::atomic<int> formatChanges = 0;
  std::atomic<int> stallMilliseconds = 0;  ///< the next callback takes so long
  std::uint64_t pulseEvery = 0;            ///< frames; a pulse in silence instead of the pattern

  static std::uint32_t render(void* context, AudioBufferList& list, std::uint32_t frames) noexcept {
    auto& self = *static_cast<Player*>(context);
    if (self.closed) self.calledWhenClosed = true;
    self.inside = true;
    if (!realtime::active()) self.outsideOfScope = true;
    char thread[16] = {};
    ::prctl(PR_GET_NAME, thread);
    if (std::string_view(thread) == "velorin-pw") self.onMainLoop = true;
    // Busy, not asleep: the guard of the render thread would not have that.
    const auto busyUntil =
        Clock::now() + std::chrono::milliseconds(self.stallMilliseconds.exchange(0));
    while (Clock::now() < busyUntil) {
    }
    const std::uint64_t first = self.frames;
    if (self.pulseEvery > 0) {
      for (std::uint32_t c = 0; c < list.bufferCount; ++c) {
        for (std::uint32_t i = 0; i < frames; ++i) {
          list.channel<float>(c)[i] = (first + i) % self.pulseEvery == 0 ? 0.5f : 0.0f;
        }
      }
    } else if (self.kind == Kind::float32) {
      fill<float>(list, frames, first);
    }
    if (self.kind == Kind::int16) fill<std::int16_t>(list, frames, first);
    if (self.kind == Kind::int24in32) fill<std::int32_t>(list, frames, first);
    self.frames = first + frames;
    self.largest = std::max(self.largest.load(), frames);
    ++self.calls;
    self.inside = false;
    return frames;
  }

  template <class Sample>
  static void fill(AudioBufferList& list, std::uint32_t frames, std::uint64_t first) noexcept {
    for (std::uint32_t c = 0; c < list.bufferCount; ++c) {
      for (std::uint32_t i = 0; i < frames; ++i) {
        list.channel<Sample>(c)[i] = sampleOf<Sample>(first + i, c);
      }
    }
  }

  std::unique_ptr<OutputUnit> unitOn(AudioHardware& hardware, AudioDeviceID device, double rate,
                                     std::uint32_t channels = 2, std::uint32_t slice = 8192) {
    AudioStatus status;
    auto unit = hardware.createOutputUnit(status);
    EXPECT_TRUE(unit->setDevice(device).ok());
    EXPECT_TRUE(unit->setMaximumFramesPerSlice(slice).ok());
    EXPECT_TRUE(unit->setInputFormat(formatOf(kind, rate, channels)).ok());
    EXPECT_TRUE(unit->setRenderCallback(&render, this).ok());
    unit->setEventHandler([this](OutputEvent event) {
      if (event == OutputEvent::deviceLost) ++lost;
      if (event == OutputEvent::xrun) ++xruns;
      if (event == OutputEvent::formatChanged) ++formatChanges;
    });
    return unit;
  }
  /// The same, running.
  std::unique_ptr<OutputUnit> playingOn(AudioHardware& hardware, AudioDeviceID device, double rate,
                                        std::uint32_t channels = 2, std::uint32_t slice = 8192) {
    auto unit = unitOn(hardware, device, rate, channels, slice);
    AudioStatus status = unit->initialize();
    if (status.ok()) status = unit->start();
    if (!status.ok()) throw std::runtime_error(status.description());  // ends the test
    return unit;
  }
};

// Frames of the recording that equal the pattern in order from its first frame, and where not.
template <class Sample>
void expectPattern(const std::vector<std::byte>& bytes, std::uint32_t channels,
                   std::uint64_t atLeast) {
  std::vector<Sample> samples(bytes.size() / sizeof(Sample));
  std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(Sample));
  const std::size_t recorded = samples.size() / channels;
  std::size_t start = 0;
  while (start < recorded && samples[start * channels] == Sample{}) ++start;
  std::uint64_t equal = 0;
  for (std::size_t i = start; i < recorded; ++i, ++equal) {
    bool same = true;
    for (std::uint32_t c = 0; c < channels; ++c) {
      same = same && samples[i * channels + c] == sampleOf<Sample>(equal, c);
    }
    if (!same) break;
  }
  EXPECT_GE(equal, atLeast) << "of " << recorded << " frames recorded, silence before " << start;
}

void expectPattern(Kind kind, const std::vector<std::byte>& bytes, std::uint32_t channels,
                   std::uint64_t atLeast) {
  if (kind == Kind::float32) return expectPattern<float>(bytes, channels, atLeast);
  if (kind == Kind::int16) return expectPattern<std::int16_t>(bytes, channels, atLeast);
  expectPattern<std::int32_t>(bytes, channels, atLeast);
}

MonitorFormat monitorFormatOf(Kind kind) {
  return kind == Kind::float32 ? MonitorFormat::float32
         : kind == Kind::int16 ? MonitorFormat::int16
                               : MonitorFormat::int32;
}

class PipeWireBackendTest : public testing::Test {
 protected:
  void SetUp() override {
    VELORIN_NEEDS_PIPEWIRE();
    // The server's own list of rates has 48 kHz alone: what plays at others was forced.
    session = std::make_unique<PipeWireSession>(std::vector<test::PipeWireSinkSpec>{
        {"any"}, {"fixed44", 44100}, {"wide", 0, 6}, {"fixed96", 96000}});
    ASSERT_TRUE(session->start()) << session->error();
    AudioStatus status;
    hardware = PipeWireAudioHardware::create(status);
    ASSERT_TRUE(hardware) << status.description();
  }

  AudioDeviceID device(const char* name) { return hardware->deviceForUID(name); }

  void playAndCompare(const char* sink, Kind kind, double rate, std::uint32_t channels = 2);
  void playOnce(const char* sink, Kind kind, double rate, std::uint32_t channels,
                std::uint64_t& xruns);

  std::unique_ptr<PipeWireSession> session;
  std::unique_ptr<PipeWireAudioHardware> hardware;
};

// Records until a take was served in time: on a machine without real-time rights a busy moment
// makes the server skip, which the unit reports, and then there is nothing to compare.
void PipeWireBackendTest::playAndCompare(const char* sink, Kind kind, double rate,
                                         std::uint32_t channels) {
  constexpr int kTakes = 5;
  for (int take = 1; take <= kTakes; ++take) {
    std::uint64_t xruns = 0;
    playOnce(sink, kind, rate, channels, xruns);
    if (xruns == 0 || HasFatalFailure()) return;
    std::fprintf(stderr, "take %d had %d xruns\n", take, static_cast<int>(xruns));
  }
  FAIL() << "no take without an xrun";
}

void PipeWireBackendTest::playOnce(const char* sink, Kind kind, double rate, std::uint32_t channels,
                                   std::uint64_t& xruns) {
  SCOPED_TRACE(testing::Message() << sink << " at " << rate << ", kind " << static_cast<int>(kind));
  Player player(kind);
  ASSERT_TRUE(hardware->setNominalSampleRate(device(sink), rate).ok());
  PipeWireMonitorRecorder recorder;
  ASSERT_TRUE(recorder.start(sink, static_cast<unsigned>(rate), channels, monitorFormatOf(kind)));
  auto unit = player.playingOn(*hardware, device(sink), rate, channels);
  const auto goal = static_cast<std::uint64_t>(rate / 2);
  ASSERT_TRUE(eventually([&] { return player.frames >= goal; }));
  const OutputReport report = unit->report();
  const std::size_t recorded = recorder.size();
  ASSERT_TRUE(eventually([&] { return recorder.size() > recorded + 100; }));
  xruns = unit->report().xruns;
  unit->stop();
  unit.reset();
  EXPECT_FALSE(player.outsideOfScope);
  EXPECT_FALSE(player.onMainLoop);
  EXPECT_EQ(report.deviceRate, rate);
  EXPECT_FALSE(report.converted);
  EXPECT_TRUE(report.volumeUnity);
  EXPECT_EQ(report.deviceBits, 24u);
  if (xruns > 0) return;
  // The last quantum or two may still be on their way when the recording ends.
  expectPattern(kind, recorder.stop(), channels, goal - 3 * report.periodFrames);
}

TEST_F(PipeWireBackendTest, EveryFormatArrivesBitForBitAtEveryRate) {
  for (const double rate : {44100., 48000., 96000., 192000.}) {
    for (const Kind kind : {Kind::float32, Kind::int16, Kind::int24in32}) {
      playAndCompare("any", kind, rate);
    }
  }
  playAndCompare("fixed44", Kind::int24in32, 44100);
  playAndCompare("wide", Kind::int16, 48000, 6);
}

TEST_F(PipeWireBackendTest, ListsSinksWithTheirRates) {
  EXPECT_EQ(hardware->devices().size(), 4u);
  const AudioDeviceID any = device("any");
  ASSERT_NE(any, kNoDevice);
  EXPECT_EQ(hardware->deviceName(any), "any sink");
  EXPECT_EQ(hardware->transportType(any), TransportType::virtualDevice);
  EXPECT_EQ(hardware->outputChannels(any), 2u);
  EXPECT_EQ(hardware->outputChannels(device("wide")), 6u);
  EXPECT_EQ(hardware->availableSampleRates(device("fixed44")),
            (std::vector<RateRange>{{44100, 44100}}));
  const auto rates = hardware->availableSampleRates(any);
  EXPECT_EQ(rates.front(), (RateRange{8000, 8000}));
  EXPECT_EQ(rates.back(), (RateRange{768000, 768000}));
  EXPECT_EQ(hardware->setNominalSampleRate(device("fixed44"), 48000).code, -EINVAL);
  EXPECT_EQ(hardware->nominalSampleRate(device("fixed44")), 44100);
  EXPECT_EQ(hardware->bufferFrameSizeRange(any)->maximum, 8192u);
  EXPECT_FALSE(hardware->alsaAddress(any));
  EXPECT_EQ(hardware->deviceForUID("nothing"), kNoDevice);
  EXPECT_EQ(hardware->deviceName(99), "");
}

TEST_F(PipeWireBackendTest, FollowsTheDefaultAndHotPlug) {
  SerialQueue queue("com.velorin.test");
  std::atomic<int> devices = 0;
  std::atomic<int> defaults = 0;
  const auto a = hardware->addListener(AudioProperty::devices, 0, 0, queue, [&] { ++devices; });
  const auto b =
      hardware->addListener(AudioProperty::defaultOutput, 0, 0, queue, [&] { ++defaults; });
  ASSERT_TRUE(session->setDefaultSink("fixed96"));
  EXPECT_TRUE(eventually([&] { return hardware->defaultOutputDevice() == device("fixed96"); }));
  EXPECT_TRUE(eventually([&] { return defaults >= 1; }));

  ASSERT_TRUE(session->createSink({"plugged", 88200}));
  EXPECT_TRUE(eventually([&] { return device("plugged") != kNoDevice; }));
  EXPECT_TRUE(eventually([&] { return devices >= 1; }));
  const AudioDeviceID plugged = device("plugged");
  EXPECT_EQ(hardware->availableSampleRates(plugged), (std::vector<RateRange>{{88200, 88200}}));
  ASSERT_TRUE(session->removeSink("plugged"));
  EXPECT_TRUE(eventually([&] { return !hardware->hasOutputStreams(plugged); }));
  EXPECT_TRUE(eventually([&] { return devices >= 2; }));
  ASSERT_TRUE(session->createSink({"plugged", 88200}));
  EXPECT_TRUE(eventually([&] { return device("plugged") == plugged; })) << "the old id comes back";
}

TEST_F(PipeWireBackendTest, TheGraphRunsAtTheClientRateAndTheReportSaysSo) {
  Player player;
  const AudioDeviceID any = device("any");
  ASSERT_TRUE(hardware->setNominalSampleRate(any, 88200).ok());
  EXPECT_EQ(hardware->nominalSampleRate(any), 88200);
  ASSERT_TRUE(hardware->setBufferFrameSize(any, 8192).ok());
  const auto predicted = hardware->bufferFrameSize(any);
  auto unit = player.playingOn(*hardware, any, 88200, 2, 1000);
  ASSERT_TRUE(eventually([&] { return player.calls > 20; }));
  const OutputReport report = unit->report();
  EXPECT_EQ(report.deviceRate, 88200);
  EXPECT_EQ(hardware->nominalSampleRate(any), 88200);
  EXPECT_EQ(report.periodFrames, predicted) << "the prediction held";
  EXPECT_EQ(hardware->bufferFrameSize(any), report.periodFrames);
  EXPECT_EQ(player.largest, 1000u) << "a quantum above the slice is asked for in slices";
  EXPECT_FALSE(report.mixed) << "nobody else plays there";
  EXPECT_FALSE(report.scheduling.empty());
  unit.reset();

  // A sink that cannot: the server converts, and the report does not hide it.
  Player other;
  unit = other.playingOn(*hardware, device("fixed44"), 96000);
  ASSERT_TRUE(eventually([&] { return other.calls > 5; }));
  EXPECT_TRUE(unit->report().converted);
  EXPECT_EQ(hardware->nominalSampleRate(device("fixed44")), 44100);
}

TEST_F(PipeWireBackendTest, MissedCyclesAndChangesFromOutsideAreTold) {
  Player player;
  auto unit = player.playingOn(*hardware, device("any"), 48000);
  ASSERT_TRUE(eventually([&] { return player.calls > 5; }));
  player.stallMilliseconds = 200;
  EXPECT_TRUE(eventually([&] { return player.xruns > 0; }));
  EXPECT_GT(unit->report().xruns, 0u);
  ASSERT_NE(unit->report().periodFrames, 256u);
  test::runProgram({"pw-metadata", "-n", "settings", "0", "clock.force-quantum", "256"});
  EXPECT_TRUE(eventually([&] { return player.formatChanges > 0; }));
  EXPECT_TRUE(eventually([&] { return unit->report().periodFrames == 256; }));
  EXPECT_EQ(hardware->bufferFrameSize(device("any")), 256u);
}

TEST_F(PipeWireBackendTest, NoCallbackRunsAfterStop) {
  Player player;
  auto unit = player.unitOn(*hardware, device("any"), 48000);
  ASSERT_TRUE(unit->initialize().ok());
  for (int round = 0; round < 12; ++round) {
    player.closed = false;
    const std::uint64_t before = player.calls;
    const AudioStatus status = unit->start();
    ASSERT_TRUE(status.ok()) << status.description();
    EXPECT_GT(player.calls, before) << "start() returns with the first callback";
    ASSERT_TRUE(eventually([&] { return player.calls > before + 1; }));
    unit->stop();
    player.closed = true;
    const std::uint64_t stopped = player.calls;
    std::this_thread::sleep_for(round % 2 == 0 ? 0ms : 40ms);
    ASSERT_EQ(player.calls, stopped);
  }
  EXPECT_FALSE(player.calledWhenClosed);

  player.closed = false;
  ASSERT_TRUE(unit->start().ok());
  player.stallMilliseconds = 100;
  ASSERT_TRUE(eventually([&] { return player.stallMilliseconds == 0; }));
  unit->stop();
  EXPECT_FALSE(player.inside) << "stop() waits for the callback that is under way";
}

TEST_F(PipeWireBackendTest, ASuspendedSinkIsResumed) {
  Player player;
  auto unit = player.playingOn(*hardware, device("any"), 48000);
  unit->stop();
  const std::string node = std::to_string(session->nodeId("any").value());
  test::runProgram({"pw-cli", "send-command", node, "Suspend", "{}"});
  ASSERT_TRUE(eventually([&] {
    return test::runProgram({"pw-cli", "info", node}).find("suspended") != std::string::npos;
  }));
  const std::uint64_t before = player.frames;
  EXPECT_TRUE(unit->start().ok());
  EXPECT_GT(player.frames, before);
  EXPECT_EQ(player.lost, 0);
}

TEST_F(PipeWireBackendTest, ASinkThatGoesIsReportedOnce) {
  Player player;
  ASSERT_TRUE(session->createSink({"plugged", 48000}));
  ASSERT_TRUE(eventually([&] { return device("plugged") != kNoDevice; }));
  auto unit = player.playingOn(*hardware, device("plugged"), 48000);
  ASSERT_TRUE(session->removeSink("plugged"));
  ASSERT_TRUE(eventually([&] { return player.lost > 0; }));
  player.closed = true;
  EXPECT_EQ(unit->start().code, -ENODEV);
  unit->stop();
  unit->uninitialize();
  EXPECT_EQ(unit->initialize().code, -ENODEV);
  unit.reset();
  EXPECT_EQ(player.lost, 1);
  EXPECT_FALSE(player.calledWhenClosed) << "the stream did not move to another sink";
}

TEST_F(PipeWireBackendTest, TheServerMayDieAndComeBack) {
  SerialQueue queue("com.velorin.test");
  std::atomic<int> devices = 0;
  const auto listener =
      hardware->addListener(AudioProperty::devices, 0, 0, queue, [&] { ++devices; });
  const AudioDeviceID any = device("any");
  for (int round = 0; round < 2; ++round) {
    Player player;
    auto unit = player.playingOn(*hardware, any, 48000);
    const int before = devices;
    session->killServer();
    ASSERT_TRUE(eventually([&] { return player.lost == 1; }));
    ASSERT_TRUE(eventually([&] { return hardware->devices().empty() && devices > before; }));
    EXPECT_EQ(hardware->defaultOutputDevice(), kNoDevice);
    const auto begin = Clock::now();
    EXPECT_EQ(unit->start().code, -ENODEV);
    unit->stop();
    unit.reset();
    EXPECT_FALSE(hardware->setVolume(any, 0, 1).ok());
    EXPECT_LT(Clock::now() - begin, 2s);
    EXPECT_EQ(player.lost, 1);

    ASSERT_TRUE(session->restartServer()) << session->error();
    ASSERT_TRUE(eventually([&] { return device("any") == any; }));
    ASSERT_TRUE(eventually([&] { return hardware->defaultOutputDevice() != kNoDevice; }));
    EXPECT_EQ(hardware->devices().size(), 4u);
  }
  playAndCompare("any", Kind::float32, 48000);
}

TEST_F(PipeWireBackendTest, ASinkThatIsNoLongerConnectedIsLost) {
  Player player;
  AudioDeviceID both = kNoDevice;
  auto unit = player.playingOn(*hardware, device("any"), 48000);
  ASSERT_TRUE(hardware->createAggregate({"Both", "both", {"fixed44", "fixed96"}}, both).ok());
  ASSERT_TRUE(session->restartSessionManager()) << session->error();
  EXPECT_TRUE(eventually([&] { return player.lost == 1; }));
  EXPECT_TRUE(eventually([&] { return !hardware->hasOutputStreams(both); }));
  unit.reset();
  // This session manager takes up no sink that it did not make; together with the server it does.
  session->killServer();
  ASSERT_TRUE(session->restartServer()) << session->error();
  ASSERT_TRUE(eventually([&] { return device("any") != kNoDevice; }));
  Player again;
  unit = again.playingOn(*hardware, device("any"), 48000);
  EXPECT_EQ(player.lost, 1);
}

TEST_F(PipeWireBackendTest, AFrozenServerHoldsNobodyUp) {
  Player player;
  auto unit = player.playingOn(*hardware, device("any"), 48000);
  session->freezeServer(true);
  const auto begin = Clock::now();
  unit->stop();
  unit.reset();
  AudioStatus status;
  EXPECT_FALSE(PipeWireAudioHardware::create(status));
  EXPECT_EQ(status.code, -ETIMEDOUT);
  auto other = player.unitOn(*hardware, device("any"), 48000);
  EXPECT_FALSE(other->initialize().ok());
  other.reset();
  hardware.reset();
  EXPECT_LT(Clock::now() - begin, 6s);
  session->freezeServer(false);
}

TEST_F(PipeWireBackendTest, ExclusiveMeansNobodyElse) {
  const AudioDeviceID any = device("any");
  EXPECT_EQ(hardware->hogOwner(any), -1);
  ASSERT_TRUE(hardware->setHogOwner(any, ::getpid()).ok());
  Player first;
  auto unit = first.playingOn(*hardware, any, 48000);
  EXPECT_TRUE(unit->report().exclusive);
  EXPECT_FALSE(unit->report().mixed);
  EXPECT_EQ(hardware->hogOwner(any), ::getpid());

  AudioStatus status;
  const auto second = PipeWireAudioHardware::create(status);
  ASSERT_TRUE(second);
  Player loser;
  auto refused = loser.unitOn(*second, second->deviceForUID("any"), 48000);
  status = refused->initialize();
  EXPECT_EQ(status.code, -EBUSY) << status.description();
  EXPECT_EQ(loser.calls, 0u);
  EXPECT_EQ(loser.lost, 0);

  unit.reset();
  ASSERT_TRUE(hardware->setHogOwner(any, -1).ok());
  EXPECT_TRUE(eventually([&] { return refused->initialize().ok(); }));
  EXPECT_TRUE(refused->start().ok());
}

TEST_F(PipeWireBackendTest, VolumeGoesRoundAndOnlyForeignChangesAreNews) {
  SerialQueue queue("com.velorin.test");
  const AudioDeviceID any = device("any");
  std::atomic<int> changes = 0;
  const auto listener =
      hardware->addListener(AudioProperty::volume, any, 0, queue, [&] { ++changes; });
  ASSERT_TRUE(listener);
  EXPECT_EQ(hardware->volume(any, 0), 1.0f);
  Player player;
  auto unit = player.playingOn(*hardware, any, 48000);
  EXPECT_TRUE(unit->report().volumeUnity);
  AudioStatus status;
  const auto other = PipeWireAudioHardware::create(status);
  const AudioDeviceID same = other->deviceForUID("any");
  const auto sees = [](const AudioHardware& side, AudioDeviceID id, std::uint32_t element,
                       float value) {
    return eventually([&] { return std::abs(*side.volume(id, element) - value) < 1e-4f; });
  };

  // A slider that is drawn: what it set last stands, whatever echo is on its way.
  ASSERT_TRUE(hardware->setVolume(any, 1, 0.5f).ok());
  for (int step = 100; step >= 0; --step) {
    const float value = static_cast<float>(step) / 100;
    ASSERT_TRUE(hardware->setVolume(any, 0, value).ok());
    ASSERT_NEAR(*hardware->volume(any, 0), value, 1e-4f);
    if (step % 20 == 0) {
      ASSERT_TRUE(sees(*other, same, 0, value));
    }
  }
  ASSERT_TRUE(hardware->setVolume(any, 0, 1).ok());
  ASSERT_TRUE(sees(*other, same, 1, 0.5f)) << "the balance outlives silence";
  EXPECT_TRUE(eventually([&] { return !unit->report().volumeUnity; }));
  EXPECT_EQ(changes, 0);

  ASSERT_TRUE(other->setVolume(same, 0, 0.25f).ok());
  EXPECT_TRUE(eventually([&] { return changes == 1; }));
  EXPECT_TRUE(sees(*hardware, any, 1, 0.125f));
  ASSERT_TRUE(other->setVolume(same, 1, 1).ok());
  ASSERT_TRUE(other->setVolume(same, 2, 7).ok());
  EXPECT_TRUE(sees(*hardware, any, 1, 1) && sees(*hardware, any, 2, 1));
  EXPECT_TRUE(eventually([&] { return unit->report().volumeUnity; }));

  const std::string node = std::to_string(session->nodeId("any").value());
  const int before = changes;
  test::runProgram({"pw-cli", "set-param", node, "Props", "{ mute = true }"});
  EXPECT_TRUE(eventually([&] { return !unit->report().volumeUnity; })) << "muted";
  EXPECT_EQ(hardware->volume(any, 0), 1.0f);
  EXPECT_EQ(changes, before);
  EXPECT_EQ(hardware->setVolume(any, 3, 1).code, -ENOTSUP);
  EXPECT_EQ(hardware->setVolume(any, 0, std::nanf("")).code, -EINVAL);
  EXPECT_FALSE(hardware->hasVolume(any, 3));
}

TEST(PipeWireVolumeTest, TellsEchoesFromNewsAndBelievesTheServerInTheEnd) {
  const PipeWireVolume::Clock::time_point begin{};
  const auto at = [&](int ms) { return begin + 1h + std::chrono::milliseconds(ms); };
  PipeWireVolume volume;
  EXPECT_TRUE(volume.told({1, 1}, at(0)));
  volume.sent({0.5f, 0.5f}, at(1));
  volume.sent({0.2f, 0.2f}, at(2));
  EXPECT_FALSE(volume.told({0.5f, 0.5f}, at(10))) << "late echo of the first";
  EXPECT_EQ(volume.gains()[0], 0.2f);
  EXPECT_FALSE(volume.told({0.201f, 0.199f}, at(11))) << "rounded by a mixer";
  EXPECT_FALSE(volume.settle(at(400)));
  EXPECT_FALSE(volume.settle(at(600)));
  EXPECT_EQ(volume.gains()[0], 0.201f);
  EXPECT_TRUE(volume.told({0.5f, 0.5f}, at(700))) << "this time it is somebody else";

  volume.sent({0.1f, 0.1f}, at(800));
  EXPECT_TRUE(volume.told({0.9f, 0.9f}, at(801))) << "somebody else, at the same time";
  volume.sent({0.1f, 0.1f}, at(900));
  EXPECT_TRUE(volume.settle(at(1500))) << "refused";
  EXPECT_EQ(volume.gains()[0], 0.9f);
}

/// Pulses of the player in one channel of an interleaved recording, by frame.
std::vector<std::size_t> pulses(const std::vector<std::byte>& bytes, std::size_t channels,
                                std::size_t channel) {
  std::vector<float> samples(bytes.size() / sizeof(float));
  std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
  std::vector<std::size_t> found;
  for (std::size_t i = channel; i < samples.size(); i += channels) {
    if (samples[i] > 0.1f) found.push_back(i / channels);
  }
  return found;
}

// The server's monitor of the sink that drives the graph is a cycle late, so two that do not are
// compared, in one recording.
TEST_F(PipeWireBackendTest, AnAggregateGivesItsSinksTheSameFramesInTheSameCycle) {
  AudioDeviceID all = kNoDevice;
  EXPECT_EQ(hardware->createAggregate({"All", "agg", {"any", "none"}}, all).code, -ENODEV);
  const AudioStatus status =
      hardware->createAggregate({"All", "velorin.all", {"any", "fixed44", "fixed96"}}, all);
  ASSERT_TRUE(status.ok()) << status.description();
  EXPECT_EQ(hardware->transportType(all), TransportType::aggregate);
  EXPECT_EQ(hardware->deviceName(all), "All");
  EXPECT_EQ(hardware->outputChannels(all), 2u);
  EXPECT_FALSE(hardware->availableSampleRates(all).empty());
  AudioStatus created;
  const auto other = PipeWireAudioHardware::create(created);
  EXPECT_EQ(other->deviceForUID("velorin.all"), kNoDevice) << "it is nobody else's device";

  Player player;
  player.pulseEvery = 4800;
  auto unit = player.playingOn(*hardware, all, 48000);
  PipeWireMonitorRecorder recorder;
  ASSERT_TRUE(recorder.start("", 48000, 4, MonitorFormat::float32));
  const auto link = [](const char* from, const char* to) {
    return eventually([&] { return test::runProgram({"pw-link", from, to}).empty(); });
  };
  ASSERT_TRUE(link("any:monitor_FR", "recorder:input_FR"));
  ASSERT_TRUE(link("fixed96:monitor_FL", "recorder:input_FC"));
  ASSERT_TRUE(link("fixed44:monitor_FL", "recorder:input_FL"));
  const std::size_t start = recorder.size();
  ASSERT_TRUE(eventually([&] { return recorder.size() > start + 48000 * 4 * sizeof(float) * 2; }));
  unit->stop();
  const auto bytes = recorder.stop();
  auto first = pulses(bytes, 4, 0);
  auto second = pulses(bytes, 4, 2);
  ASSERT_GE(first.size(), 15u);
  // The links were made one after the other: from the end, where both are there.
  first.erase(first.begin(), first.end() - 15);
  second.erase(second.begin(), second.end() - 15);
  EXPECT_EQ(first, second);
  EXPECT_TRUE(unit->report().converted) << "each sink has a clock of its own";
  unit.reset();
  EXPECT_TRUE(hardware->destroyAggregate(all).ok());
  EXPECT_TRUE(eventually([&] { return device("velorin.all") == kNoDevice; }));
}

TEST_F(PipeWireBackendTest, AnAggregateLivesAsLongAsOneOfItsSinks) {
  AudioDeviceID both = kNoDevice;
  const AudioDeviceID any = device("any");
  ASSERT_TRUE(session->createSink({"plugged", 48000}));
  ASSERT_TRUE(eventually([&] { return device("plugged") != kNoDevice; }));
  ASSERT_TRUE(hardware->createAggregate({"Both", "velorin.both", {"plugged", "wide"}}, both).ok());
  Player player;
  auto unit = player.playingOn(*hardware, both, 48000);
  const auto hears = [](const char* sink) {
    PipeWireMonitorRecorder recorder;
    if (!recorder.start(sink, 48000, 2, MonitorFormat::float32)) return false;
    return eventually([&, seen = recorder.size()] { return recorder.size() > seen + 48000; }) &&
           std::ranges::any_of(recorder.stop(), [](std::byte b) { return b != std::byte{}; });
  };
  EXPECT_TRUE(hears("plugged"));
  EXPECT_TRUE(hears("wide"));
  EXPECT_TRUE(unit->report().volumeUnity);
  ASSERT_TRUE(hardware->setVolume(device("wide"), 0, 0.5f).ok());
  EXPECT_TRUE(eventually([&] { return !unit->report().volumeUnity; })) << "also of what is behind";

  ASSERT_TRUE(session->removeSink("plugged"));
  ASSERT_TRUE(eventually([&] { return device("plugged") == kNoDevice; }));
  EXPECT_TRUE(hears("wide"));
  ASSERT_TRUE(session->createSink({"plugged", 48000}));
  EXPECT_TRUE(hears("plugged")) << "it is taken up again";
  EXPECT_EQ(player.lost, 0);

  ASSERT_TRUE(session->removeSink("plugged"));
  ASSERT_TRUE(session->removeSink("wide"));
  EXPECT_TRUE(eventually([&] { return !hardware->hasOutputStreams(both); }));
  EXPECT_TRUE(eventually([&] { return player.lost == 1; }));
  unit.reset();

  // What somebody holds for himself cannot be a part.
  ASSERT_TRUE(hardware->setHogOwner(any, ::getpid()).ok());
  Player holder;
  auto held = holder.playingOn(*hardware, any, 48000);
  const AudioStatus status =
      hardware->createAggregate({"Both", "velorin.again", {"any", "fixed44"}}, both);
  EXPECT_EQ(status.code, -EBUSY) << status.description();
  held.reset();
  ASSERT_TRUE(hardware->setHogOwner(any, -1).ok());
  ASSERT_TRUE(hardware->createAggregate({"Both", "velorin.third", {"any", "fixed44"}}, both).ok());
  session->killServer();
  EXPECT_TRUE(eventually([&] { return !hardware->hasOutputStreams(both); }));
  EXPECT_EQ(hardware->destroyAggregate(both).code, -ENODEV);
}

TEST(PipeWireWithoutServer, IsNullWithAReason) {
  test::TemporaryFolder empty;
  const char* before = std::getenv("XDG_RUNTIME_DIR");
  const std::string saved = before ? before : "";
  ::setenv("XDG_RUNTIME_DIR", empty.path().c_str(), 1);
  AudioStatus status;
  EXPECT_FALSE(PipeWireAudioHardware::create(status));
  EXPECT_FALSE(status.ok());
  EXPECT_FALSE(status.text.empty());
  before ? ::setenv("XDG_RUNTIME_DIR", saved.c_str(), 1) : ::unsetenv("XDG_RUNTIME_DIR");
}

}  // namespace
}  // namespace velorin
