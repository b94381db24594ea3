// Nothing on the render thread allocates, locks or blocks: the guard aborts where it does, and the
// whole road from the ring to the device runs clean under it.
#include "support/RealtimeGuard.h"

#include <FLAC/stream_decoder.h>
#include <fcntl.h>
#include <poll.h>
#include <semaphore.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <shared_mutex>

#include "engine/EngineHarness.h"
#include "engine/render/RenderPath.h"
#include "foundation/Realtime.h"
#include "support/GainEffect.h"

namespace velorin {
namespace {

using test::EngineHarness;
using test::GainEffect;
using test::wideDevice;

// Where the optimiser cannot follow, so that no allocation is paired off and dropped.
void* volatile sink;

struct ForbiddenCall {
  const char* said;  ///< by the guard, as a regular expression
  std::function<void()> call;
};

std::vector<ForbiddenCall> forbiddenCalls() {
  static std::mutex mutex;
  static std::timed_mutex timedMutex;
  static std::shared_mutex sharedMutex;
  static std::condition_variable condition;
  static sem_t semaphore;
  sem_init(&semaphore, 0, 1000);
  static void* const block = std::malloc(16);
  static const int null = ::open("/dev/null", O_RDWR);
  static std::FILE* const file = std::fopen("/dev/null", "w");
  static const timespec noTime{};
  static void* aligned = nullptr;
  static char byte = 0;
  static int count = 0;
  return {
      {"malloc", [] { sink = std::malloc(24); }},
      {"calloc", [] { sink = std::calloc(3, 8); }},
      {"realloc", [] { sink = std::realloc(block, 16); }},
      {"aligned_alloc", [] { sink = std::aligned_alloc(64, 64); }},
      {"free", [] { std::free(sink); }},
      {"posix_memalign", [] { EXPECT_EQ(posix_memalign(&aligned, 64, 64), 0); }},
      {"malloc", [] { sink = ::operator new(24); }},
      {"aligned_alloc", [] { sink = ::operator new (64, std::align_val_t{64}); }},
      {"free", [] { ::operator delete(sink); }},
      {"malloc", [] { sink = new std::string(100, 'x'); }},
      // A shared library's own allocation and locking count as well.
      {"calloc", [] { sink = FLAC__stream_decoder_new(); }},
      {"pthread_mutex_lock", [] { std::lock_guard hold(mutex); }},
      {"pthread_mutex_clocklock",
       [] { std::unique_lock hold(timedMutex, std::chrono::microseconds(1)); }},
      {"pthread_rwlock_rdlock", [] { std::shared_lock hold(sharedMutex); }},
      {"pthread_rwlock_wrlock", [] { std::unique_lock hold(sharedMutex); }},
      {"pthread_cond_clockwait",
       [] {
         std::unique_lock hold(mutex, std::try_to_lock);
         condition.wait_for(hold, std::chrono::microseconds(1));
       }},
      {"pthread_cond_signal", [] { condition.notify_one(); }},
      {"pthread_cond_broadcast", [] { condition.notify_all(); }},
      {"sem_wait", [] { sem_wait(&semaphore); }},
      {"syscall", [] { syscall(SYS_gettid); }},
      {"pthread_create",
       [] {
         pthread_t thread{};
         pthread_create(
             &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr);
         pthread_join(thread, nullptr);
       }},
      {"nanosleep", [] { nanosleep(&noTime, nullptr); }},
      {"clock_nanosleep", [] { clock_nanosleep(CLOCK_MONOTONIC, 0, &noTime, nullptr); }},
      {"usleep", [] { usleep(0); }},
      {"poll", [] { poll(nullptr, 0, 0); }},
      {"read", [] { EXPECT_EQ(read(null, &byte, 1), 0); }},
      {"write", [] { EXPECT_EQ(write(null, "x", 1), 1); }},
      {"open(64)?", [] { close(open("/dev/null", O_RDONLY)); }},
      {"close", [] { close(-1); }},
      {"ioctl", [] { ioctl(null, FIONREAD, &count); }},
      {"fprintf", [] { std::fprintf(file, "%d", null); }},
      {"(fputs|fwrite)", [] { std::fputs("text", file); }},
      {"(fputc|putc)", [] { std::fputc('x', file); }},
      {"fflush", [] { std::fflush(file); }},
      {"[a-z_]+", [] { log::line("ℹ️ from the render thread"); }},
  };
}

TEST(RealtimeGuardDeathTest, EveryForbiddenCallAbortsInsideAScopeAndOnlyThere) {
  ASSERT_TRUE(test::realtimeGuardIsActive());
  const log::Capture quiet;
  for (const ForbiddenCall& forbidden : forbiddenCalls()) {
    SCOPED_TRACE(forbidden.said);
    forbidden.call();  // outside: as ever
    EXPECT_DEATH(
        {
          const realtime::Scope scope;
          forbidden.call();
        },
        std::string("realtime: ") + forbidden.said + " on the render thread");
  }
}

TEST(RealtimeGuard, WhatIsAllowedPasses) {
  std::mutex mutex;
  std::vector<float> from(512, 1.0f);
  std::vector<float> to(512);
  const realtime::Scope outer;
  const realtime::Scope inner;
  EXPECT_TRUE(mutex.try_lock());
  mutex.unlock();
  std::memcpy(to.data(), from.data(), 512 * sizeof(float));
  EXPECT_GT(std::chrono::steady_clock::now().time_since_epoch().count(), 0);
  std::free(nullptr);
}

// Render calls as a device makes them: gate open and closed, ring full, short and at its end.
void renderEverything(std::uint32_t sampleSize, bool isInteger) {
  AudioRingBuffer ring(2, 1 << 15, sampleSize);
  TransportCells cells;
  RenderGate gate;
  RenderControls controls;
  DSPChain chain;
  ClippingDetector clipping;
  HeadroomDSP headroom{clipping};
  SpectrumCaptureRing spectrum(4096);
  GainEffect effect(0.9f);
  chain.setProcessors({&effect});
  controls.volume = 0.5f;
  controls.spectrumCaptureEnabled = true;
  // The shortest deadline: every call is also counted as an overload.
  RenderPath path(RenderPath::Stream{ring, cells, gate, 192000, sampleSize, isInteger, 0}, controls,
                  DSPStages{headroom, chain, clipping}, spectrum);
  PlanarBuffers in(2, 1 << 15, sampleSize);
  PlanarBuffers out(4, 1 << 14, sampleSize);
  std::vector<float> captured(4096);
  for (const int outputs : {0, 4}) {
    controls.multiOutputChannelCount = outputs;
    out.list().bufferCount = outputs > 0 ? 4 : 2;
    cells.eofReached = false;
    ring.write(in.list(), 1 << 15);
    for (const std::uint32_t frames : {512u, 1u, 4096u, 16'384u, 10'000u, 5'000u, 512u}) {
      out.setFrames(frames);
      {
        const realtime::Scope scope;
        RenderPath::render(&path, out.list(), frames);
        RenderPath::render(&path, out.list(), 0);
      }
      spectrum.read(captured.data(), captured.size());
    }
    EXPECT_EQ(ring.framesHeld(), 0);
    cells.eofReached = true;
    const RenderGate::Closed closed(gate);
    const realtime::Scope scope;
    RenderPath::render(&path, out.list(), 512);
  }
  EXPECT_EQ(ring.framesRead(), 2 << 15);
  EXPECT_GT(controls.renderOverloadCount, 0);
  EXPECT_EQ(effect.calls > 0, !isInteger);
}

TEST(RealtimeGuard, TheRenderPathIsClean) {
  renderEverything(4, false);
  renderEverything(4, true);
  renderEverything(3, true);
  renderEverything(2, true);
}

// A track from start to end with the listener's hand on everything.
void playWithInterruptions(EngineHarness& h, const Track& track) {
  GainEffect effect(0.9f);
  h.engine->effects().chain.setProcessors({&effect});
  h.engine->setSpectrumCaptureEnabled(true);
  h.engine->play(track);
  ASSERT_EQ(h.engine->state(), PlaybackState::playing);
  std::vector<float> captured(4096);
  for (int turn = 0; turn < 8 && h.engine->state() != PlaybackState::stopped; ++turn) {
    h.engine->setVolume(turn % 2 == 0 ? 0.3f : 1.0f);
    h.engine->seek(0.1 * turn);
    h.engine->effects().chain.setProcessors(turn % 2 == 0 ? std::vector<DSPProcessor*>{&effect}
                                                          : std::vector<DSPProcessor*>{});
    h.engine->pause();
    h.engine->spectrumCaptureRing().read(captured.data(), captured.size());
    h.engine->resume();
    const auto until = h.hardware.framesRendered(h.device) + 2048;
    h.waitUntil([&] {
      return h.hardware.framesRendered(h.device) > until ||
             h.engine->state() == PlaybackState::stopped;
    });
  }
  EXPECT_TRUE(h.waitFor("next auto")) << "the track never ended";
  h.engine->stop();
  h.engine->effects().chain.setProcessors({});
}

TEST(RealtimeGuard, TheWholeEngineIsCleanOnVirtualDevices) {
  for (const VirtualClock clock : {VirtualClock::paced, VirtualClock::unpaced}) {
    for (const bool isInteger : {false, true}) {
      SCOPED_TRACE(testing::Message() << (clock == VirtualClock::paced ? "paced" : "unpaced")
                                      << (isInteger ? ", integer" : ", float"));
      VirtualDeviceDescription device = wideDevice(clock);
      device.bufferRange = {64, 4096};
      EngineHarness h(device);
      h.engine->setIntegerMode(isInteger);
      playWithInterruptions(h, h.file("a.flac", {.bits = 24, .frames = 44'100 + 300}));
      EXPECT_GE(h.hardware.framesRendered(h.device), 44'100u / 2);
    }
  }
}

TEST(RealtimeGuardDeathTest, AnEffectThatAllocatesIsCaughtOnTheDevicesThread) {
  struct Careless : GainEffect {
    Careless() : GainEffect(1.0f) {}
    void process(AudioBufferList&, std::int64_t, double) noexcept override {
      sink = ::operator new(16);
    }
  };
  EXPECT_DEATH(
      {
        EngineHarness h(wideDevice(VirtualClock::paced));
        Careless effect;
        h.engine->effects().chain.setProcessors({&effect});
        h.engine->play(h.file("a.flac", {.frames = 44'100}));
        h.waitFor("next auto");
      },
      "realtime: malloc on the render thread");
}

}  // namespace
}  // namespace velorin
