#include "platform/audio/alsa/AlsaStream.h"

#include <poll.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include "foundation/Log.h"
#include "foundation/Mutex.h"
#include "foundation/Realtime.h"
#include "platform/audio/alsa/WakeSignal.h"
#include "platform/power/RealtimePriority.h"

namespace velorin {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kStartTime = 2s;
constexpr auto kStopTime = 2s;
constexpr auto kInterruptTime = 1s;
/// A device that takes nothing for so long, its buffer's length apart, is gone.
constexpr auto kStallTime = 2s;
/// Restarts without the device having played anything in between. A plug-in whose server died
/// accepts each restart and fails the next write, forever.
constexpr int kMaxRecoveries = 8;
constexpr auto kRecoveryPause = 10ms;
constexpr int kMaxResumes = 100;  ///< of 50 ms
constexpr auto kResumePause = 50ms;
/// Descriptors of one PCM; plug-ins over several devices have one or two each.
constexpr std::size_t kMaxDescriptors = 32;
/// Wake-ups in a row without room for a period before the thread waits by the clock: some
/// plug-ins' descriptors are always ready.
constexpr int kMaxIdleWakes = 32;
/// So far ahead of the clock, no clock drives the device.
constexpr double kUnpacedLead = 0.5;

std::uint32_t sampleBytes(const StreamFormat& format) {
  return format.bitsPerChannel / 8;
}

}  // namespace

// Shared by the stream and its thread, so that a thread that had to be left behind still finds
// what it works on.
struct AlsaStream::Worker {
  Worker(std::unique_ptr<AlsaPcm> device, const AlsaGrant& given, const AlsaStreamSource& from,
         std::shared_ptr<AlsaEventRelay> events)
      : pcm(std::move(device)),
        grant(given),
        source(from),
        relay(std::move(events)),
        slice(std::min(given.periodFrames, from.maximumFrames)),
        layout{given.word, given.channels,
               given.access == SND_PCM_ACCESS_RW_INTERLEAVED ||
                   given.access == SND_PCM_ACCESS_MMAP_INTERLEAVED},
        planes(from.format.channelsPerFrame, slice, sampleBytes(from.format)),
        silence(std::size_t{slice} * sampleBytes(from.format)),
        packed(std::size_t{slice} * given.channels * vector::bytesPerWord(given.word)) {}

  void run();
  void transfer();
  void render();
  bool writeSlice();
  bool waitForRoom();
  bool startDevice();
  bool recover(int error);
  bool resume();
  int pollDevice(std::chrono::milliseconds time);
  void lose(int error);
  void countDropped();
  void guardAgainstUnpaced();
  bool ends() const noexcept { return stopping.load() || interrupted.load(); }

  std::unique_ptr<AlsaPcm> pcm;  ///< null once lost
  const AlsaGrant grant;
  const AlsaStreamSource source;
  const std::shared_ptr<AlsaEventRelay> relay;
  const std::uint32_t slice;  ///< frames of one callback
  const DeviceLayout layout;
  PlanarBuffers planes;
  std::vector<std::byte> silence;
  std::vector<std::byte> packed;

  WakeSignal wake;      ///< stop or interrupt
  WakeSignal running;   ///< the device was started
  WakeSignal finished;  ///< the thread is at its end
  std::atomic<bool> stopping{false};
  std::atomic<bool> interrupted{false};
  std::atomic<bool> lost{false};
  std::atomic<int> failure{0};
  std::atomic<std::uint64_t> xruns{0};
  std::atomic<std::uint64_t> framesDropped{0};
  std::atomic<bool> droppedPriority{false};

  mutable Mutex mutex;
  std::thread thread GUARDED_BY(mutex);

  mutable Mutex priorityMutex;
  ThreadPriority priority GUARDED_BY(priorityMutex);

  // The render thread's own.
  bool isStarted = false;
  int recoveries = 0;
  int idleWakes = 0;
  std::uint64_t framesSinceRecovery = 0;
  std::uint64_t framesWritten = 0;
  std::uint64_t unwritten = 0;  ///< of the last slice
  bool mayBeUnpaced = true;
  Clock::time_point startedAt;
  Clock::time_point lastProgress;
};

void AlsaStream::Worker::run() {
  pthread_setname_np(pthread_self(), "alsa.render");
  {
    const ThreadPriority raised = raiseThreadPriority();
    MutexLock lock(priorityMutex);
    priority = raised;
  }
  transfer();
  countDropped();
  snd_pcm_drop(pcm->get());
  if (interrupted.load() && !stopping.load()) lose(-ENODEV);
  // Of no use any more, and another program may be waiting for it.
  if (lost.load()) pcm.reset();
  finished.set();
}

void AlsaStream::Worker::transfer() {
  if (const int code = snd_pcm_prepare(pcm->get()); code < 0) return lose(code);
  isStarted = false;
  recoveries = 0;
  framesSinceRecovery = framesWritten = unwritten = 0;
  startedAt = lastProgress = Clock::now();
  while (waitForRoom()) {
    render();
    if (!writeSlice()) return;
    guardAgainstUnpaced();
  }
}

void AlsaStream::Worker::render() {
  const realtime::Scope scope;
  planes.setFrames(slice);
  source.callback(source.context, planes.list(), slice);
  packForDevice(source.format, planes.list(), silence.data(), layout, slice, packed.data());
}

// What the device still holds, and what of the last slice it never got.
void AlsaStream::Worker::countDropped() {
  snd_pcm_sframes_t delay = 0;
  const bool isKnown = snd_pcm_delay(pcm->get(), &delay) == 0 && delay > 0;
  framesDropped.store(unwritten + (isKnown ? static_cast<std::uint64_t>(delay) : 0));
}

// True when a slice fits; false when the thread is to end.
bool AlsaStream::Worker::waitForRoom() {
  while (!ends()) {
    const snd_pcm_sframes_t room = snd_pcm_avail_update(pcm->get());
    if (room < 0) {
      if (!recover(static_cast<int>(room))) return false;
    } else if (room >= static_cast<snd_pcm_sframes_t>(slice)) {
      idleWakes = 0;
      // A device that takes a whole buffer without being full plays into nothing.
      const bool isUnfillable = !isStarted && framesSinceRecovery >= grant.bufferFrames;
      return (!isUnfillable || startDevice()) && !ends();
    } else if (!isStarted) {
      if (!startDevice()) return false;
    } else if (const int code = pollDevice(100ms); code < 0 && !recover(code)) {
      return false;
    }
  }
  return false;
}

bool AlsaStream::Worker::writeSlice() {
  unwritten = slice;
  for (std::size_t done = 0; done < slice;) {
    const snd_pcm_sframes_t taken = pcm->write(packed.data(), layout, slice, done);
    if (taken > 0) {
      done += static_cast<std::size_t>(taken);
      unwritten = slice - done;
      framesWritten += static_cast<std::uint64_t>(taken);
      framesSinceRecovery += static_cast<std::uint64_t>(taken);
      lastProgress = Clock::now();
      // More than an empty buffer holds: the device has really played.
      if (framesSinceRecovery > grant.bufferFrames) recoveries = 0;
      continue;
    }
    int code = static_cast<int>(taken);
    if (code == 0 || code == -EAGAIN) {
      if (!isStarted && !startDevice()) return false;
      code = pollDevice(100ms);
    }
    // What is left of the slice is written after a restart: nothing is dropped but time.
    if (code < 0 && !recover(code)) return false;
    if (ends()) return false;
  }
  return true;
}

bool AlsaStream::Worker::startDevice() {
  const int code = snd_pcm_start(pcm->get());
  if (code < 0 && snd_pcm_state(pcm->get()) != SND_PCM_STATE_RUNNING) return recover(code);
  isStarted = true;
  lastProgress = Clock::now();
  running.set();
  return true;
}

// Waits for room, a stop or the time; 0 or the device's error.
int AlsaStream::Worker::pollDevice(std::chrono::milliseconds time) {
  std::array<pollfd, kMaxDescriptors + 1> all;
  all[0] = {wake.fd(), POLLIN, 0};
  int count = 0;
  const double period = grant.periodFrames / grant.rate;
  if (++idleWakes > kMaxIdleWakes) {
    time = std::chrono::milliseconds(std::max(1, static_cast<int>(period * 250)));
  } else {
    count = std::clamp(snd_pcm_poll_descriptors(pcm->get(), &all[1], kMaxDescriptors), 0,
                       static_cast<int>(kMaxDescriptors));
  }
  const auto before = Clock::now();
  const int ready =
      poll(all.data(), static_cast<nfds_t>(count) + 1, static_cast<int>(time.count()));
  if (ready < 0 && errno != EINTR) return -errno;
  if (count > 0 && Clock::now() - before > 500us) idleWakes = 0;
  const auto buffer = std::chrono::duration<double>(grant.bufferFrames / grant.rate);
  if (Clock::now() - lastProgress > kStallTime + buffer) return -ENODEV;
  if (count == 0 || ready <= 0) return 0;
  unsigned short events = 0;
  snd_pcm_poll_descriptors_revents(pcm->get(), &all[1], static_cast<unsigned>(count), &events);
  if ((events & (POLLERR | POLLNVAL)) == 0) return 0;
  switch (snd_pcm_state(pcm->get())) {
    case SND_PCM_STATE_XRUN:
      return -EPIPE;
    case SND_PCM_STATE_SUSPENDED:
      return -ESTRPIPE;
    case SND_PCM_STATE_DISCONNECTED:
      return -ENODEV;
    default:
      return (events & POLLNVAL) != 0 ? -ENODEV : -EIO;
  }
}

// True when the transfer goes on. -EINTR is no fault; xrun and suspend are restarted a bounded
// number of times; everything else means that the device is gone.
bool AlsaStream::Worker::recover(int error) {
  if (error == -EINTR || error == -EAGAIN) return true;
  if (error != -EPIPE && error != -ESTRPIPE) {
    lose(error);
    return false;
  }
  if (++recoveries > kMaxRecoveries) {
    lose(-ENODEV);
    return false;
  }
  xruns.fetch_add(1);
  relay->raise(OutputEvent::xrun);
  if (recoveries > 1 && wake.wait(kRecoveryPause * recoveries)) return false;
  const bool isResumed = error == -ESTRPIPE && resume();
  if (ends()) return false;
  isStarted = isResumed;
  framesSinceRecovery = 0;
  lastProgress = Clock::now();
  if (isResumed) return true;
  if (const int code = snd_pcm_prepare(pcm->get()); code < 0 && code != -EAGAIN) {
    lose(code);
    return false;
  }
  return true;
}

// The library's own recovery would wait here for as long as the machine takes, deaf to a stop.
bool AlsaStream::Worker::resume() {
  for (int i = 0; i < kMaxResumes; ++i) {
    const int code = snd_pcm_resume(pcm->get());
    // Plug-ins report success whatever their driver said.
    if (code != -EAGAIN) return code == 0 && snd_pcm_state(pcm->get()) == SND_PCM_STATE_RUNNING;
    if (wake.wait(kResumePause)) return false;
  }
  return false;
}

void AlsaStream::Worker::lose(int error) {
  if (lost.exchange(true)) return;
  failure.store(error);
  relay->raise(OutputEvent::deviceLost);
}

// Under a real-time class a device without a clock would keep a core from everyone else.
void AlsaStream::Worker::guardAgainstUnpaced() {
  if (!mayBeUnpaced || framesWritten <= grant.bufferFrames) return;
  const double elapsed = std::chrono::duration<double>(Clock::now() - startedAt).count();
  const double played = static_cast<double>(framesWritten - grant.bufferFrames) / grant.rate;
  if (played > elapsed + kUnpacedLead) {
    mayBeUnpaced = false;
    dropThreadPriority();
    droppedPriority.store(true);
  }
}

AlsaStream::AlsaStream(std::unique_ptr<AlsaPcm> pcm, const AlsaGrant& grant,
                       const AlsaStreamSource& source, std::shared_ptr<AlsaEventRelay> relay)
    : _worker(std::make_shared<Worker>(std::move(pcm), grant, source, std::move(relay))) {
  _worker->finished.set();
}

AlsaStream::~AlsaStream() {
  stop();
}

AudioStatus AlsaStream::start() {
  Worker& worker = *_worker;
  {
    MutexLock lock(worker.mutex);
    if (worker.lost.load()) return AudioStatus::failure(-ENODEV, "the device is gone");
    if (worker.thread.joinable()) return AudioStatus::success();
    if (!worker.finished.wait(0ms)) {
      return AudioStatus::failure(-EBUSY, "the device still holds the last start");
    }
    worker.stopping.store(false);
    worker.xruns.store(0);
    worker.droppedPriority.store(false);
    for (WakeSignal* signal : {&worker.wake, &worker.running, &worker.finished}) signal->clear();
    worker.thread = std::thread([shared = _worker] { shared->run(); });
  }
  std::array<pollfd, 2> either = {pollfd{worker.running.fd(), POLLIN, 0},
                                  pollfd{worker.finished.fd(), POLLIN, 0}};
  const auto limit = std::chrono::milliseconds(kStartTime).count();
  while (poll(either.data(), either.size(), static_cast<int>(limit)) < 0 && errno == EINTR) {
  }
  if (worker.running.wait(0ms)) return AudioStatus::success();
  const int failure = worker.failure.load();
  stop();
  return failure != 0 ? AudioStatus::failure(failure, snd_strerror(failure))
                      : AudioStatus::failure(-ETIMEDOUT, "the device does not start");
}

void AlsaStream::stop() {
  Worker& worker = *_worker;
  MutexLock lock(worker.mutex);
  if (!worker.thread.joinable()) return;
  worker.stopping.store(true);
  worker.wake.set();
  if (worker.finished.wait(kStopTime)) {
    worker.thread.join();
    return;
  }
  log::line("❌ ALSA render thread does not end; left behind");
  worker.thread.detach();
}

void AlsaStream::interrupt() {
  Worker& worker = *_worker;
  worker.interrupted.store(true);
  worker.wake.set();
  {
    MutexLock lock(worker.mutex);
    if (!worker.thread.joinable() && worker.finished.wait(0ms)) {
      worker.pcm.reset();
      worker.lose(-ENODEV);
    }
  }
  worker.finished.wait(kInterruptTime);
}

std::uint64_t AlsaStream::xruns() const noexcept {
  return _worker->xruns.load();
}

std::uint64_t AlsaStream::framesDropped() const noexcept {
  return _worker->framesDropped.load();
}

bool AlsaStream::isRealtime() const {
  MutexLock lock(_worker->priorityMutex);
  return _worker->priority.isRealtime && !_worker->droppedPriority.load();
}

std::string AlsaStream::scheduling() const {
  MutexLock lock(_worker->priorityMutex);
  return _worker->droppedPriority.load() ? "normal" : _worker->priority.scheduling;
}

}  // namespace velorin
