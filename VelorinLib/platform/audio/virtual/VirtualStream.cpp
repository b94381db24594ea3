#include "platform/audio/virtual/VirtualStream.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>

#include "foundation/Realtime.h"

namespace velorin {
namespace {

using Clock = std::chrono::steady_clock;

// A closed gate is asked again after the shortest nap first: a decoder mostly needs microseconds.
constexpr std::chrono::microseconds kShortestNap{50};
constexpr std::chrono::microseconds kLongestNap{1000};

}  // namespace

VirtualStream::VirtualStream(Setup setup)
    : _setup(std::move(setup)),
      _pullGate(_setup.device->pullGate()),
      _recorder(_setup.device->recorder()),
      _buffers(_setup.format.channelsPerFrame, _setup.maximumFrames, _setup.format.bytesPerFrame) {
  if (_recorder) _recorder->begin(_setup.format);
}

VirtualStream::~VirtualStream() {
  stop();
  close();
}

bool VirtualStream::start() {
  {
    MutexLock lock(_stateMutex);
    if (_lost) return false;
    if (_running) return true;
    _running = true;
    _framesSinceStart = 0;
  }
  switch (_setup.device->fixed().clock) {
    case VirtualClock::manual:
      return true;
    case VirtualClock::paced:
      _clock = std::thread([this] { runPaced(); });
      break;
    case VirtualClock::unpaced:
      _clock = std::thread([this] { runUnpaced(); });
      break;
  }
  pthread_setname_np(_clock.native_handle(), "virtual-output");
  return true;
}

void VirtualStream::stop() {
  halt();
  if (_clock.joinable()) _clock.join();
}

bool VirtualStream::isRunning() const {
  MutexLock lock(_stateMutex);
  return _running;
}

void VirtualStream::halt() {
  {
    MutexLock lock(_stateMutex);
    _running = false;
    _wake.notifyAll();
  }
  MutexLock barrier(_renderMutex);
}

bool VirtualStream::waitUntil(Clock::time_point deadline) {
  MutexLock lock(_stateMutex);
  while (_running && _wake.waitUntil(_stateMutex, deadline)) {
  }
  return _running;
}

void VirtualStream::runPaced() {
  const double rate = _setup.format.sampleRate;
  Clock::time_point origin = Clock::now();
  std::uint64_t framesSinceOrigin = 0;
  while (true) {
    const std::uint32_t frames = _setup.device->bufferFrames();
    if (!render(frames)) return;
    framesSinceOrigin += frames;
    const std::chrono::duration<double> played(static_cast<double>(framesSinceOrigin) / rate);
    const auto deadline = origin + std::chrono::duration_cast<Clock::duration>(played);
    if (!waitUntil(deadline)) return;
    // A suspended machine: go on from now instead of racing through the time that was slept.
    const std::chrono::duration<double> late = Clock::now() - deadline;
    if (late.count() > frames / rate) {
      ++_xruns;
      origin = Clock::now();
      framesSinceOrigin = 0;
    }
  }
}

void VirtualStream::runUnpaced() {
  auto nap = kShortestNap;
  while (true) {
    std::uint32_t frames = _setup.device->bufferFrames();
    if (_pullGate && !_pullGate(frames)) {
      if (!waitUntil(Clock::now() + nap)) return;
      nap = std::min(nap * 2, kLongestNap);
      continue;
    }
    nap = kShortestNap;
    if (!render(frames)) return;
  }
}

bool VirtualStream::render(std::uint32_t frames, const CopyTo& copyTo) {
  while (frames > 0) {
    MutexLock lock(_renderMutex);
    if (!isRunning()) return false;
    const std::uint32_t slice = std::min(frames, _setup.maximumFrames);
    renderSlice(slice, copyTo);
    frames -= slice;
  }
  return true;
}

void VirtualStream::renderSlice(std::uint32_t frames, const CopyTo& copyTo) {
  _buffers.setFrames(frames);
  AudioBufferList list = _buffers.list();
  std::uint32_t programme = 0;
  {
    realtime::Scope scope;
    programme = _setup.callback(_setup.context, list, frames);
  }
  programme = std::min(programme, frames);
  if (_recorder) _recorder->record(list, frames, programme);
  if (copyTo) copyTo(list, frames, programme);
  _setup.device->addFramesRendered(frames);
  _framesSinceStart += frames;
}

void VirtualStream::raise(OutputEvent event) {
  MutexLock lock(_eventMutex);
  if (!_closed && _setup.eventHandler) _setup.eventHandler(event);
}

void VirtualStream::lose() {
  {
    MutexLock lock(_stateMutex);
    if (_lost) return;
    _lost = true;
  }
  halt();
  raise(OutputEvent::deviceLost);
}

void VirtualStream::close() {
  MutexLock lock(_eventMutex);
  if (_closed) return;
  _closed = true;
  if (_recorder) _recorder->end();
}

}  // namespace velorin
