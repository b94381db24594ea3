// Stop, pause, resume, seek, position, and the end of a track.
#include "engine/AudioEngineImpl.h"
#include "foundation/Log.h"
#include "records/Events.h"

namespace velorin {
namespace {

/// Seconds: bounds a seek in a file that does not tell its length.
constexpr double kLongestTrack = 1e9;

}  // namespace

void AudioEngine::Impl::changeState(PlaybackState state) {
  nowPlaying.setState(state);
  bus.postOnMain(PlaybackStateDidChange{state});
}

void AudioEngine::Impl::setRendering(bool rendering) {
  if (const auto playing = currentSession()) {
    playing->cells.rendering.store(rendering);
    playing->waker.signal();
  }
}

void AudioEngine::Impl::setSession(std::shared_ptr<PlaybackSession> next) {
  MutexLock hold(sessionLock);
  session.swap(next);
}

void AudioEngine::Impl::stop() {
  playGeneration.fetch_add(1, std::memory_order_release);
  progressTimer.stop();
  if (const auto playing = currentSession()) {
    playing->cells.pendingSeekUsec.store(TransportCells::kNoSeek);
  }
  releaseStream();
  sleepInhibitor.release();
  if (!settings.exclusiveMode) devices.disableHogMode();

  const bool wasStopped = nowPlaying.state() == PlaybackState::stopped;
  nowPlaying.clear();
  if (!wasStopped) bus.postOnMain(PlaybackStateDidChange{PlaybackState::stopped});
}

void AudioEngine::Impl::releaseStream() {
  output.end();
  refreshReport();
  renderingSession.store(nullptr);
  fillThread.stop(/*quick=*/true);
  setSession(nullptr);
}

void AudioEngine::Impl::pause() {
  if (!output.isOpen() || nowPlaying.state() != PlaybackState::playing) return;
  const std::uint64_t dropped = output.pause();
  setRendering(false);
  if (dropped > 0) takeBack(dropped);
  sleepInhibitor.release();
  changeState(PlaybackState::paused);
  progressTimer.stop();
}

void AudioEngine::Impl::takeBack(std::uint64_t clientFrames) {
  const auto playing = currentSession();
  if (!playing) return;
  TransportCells& cells = playing->cells;
  const double fileRate = playing->fileFormat.sampleRate;
  const std::int64_t heard = std::max<std::int64_t>(
      0, cells.framesReadFromBuffer.load() - static_cast<std::int64_t>(clientFrames));
  const std::int64_t frame =
      cells.seekFrameOffset.load() +
      std::llround(static_cast<double>(heard) * fileRate / playing->clientFormat.sampleRate);

  cells.seekFrameOffset.store(frame);
  cells.framesReadFromBuffer.store(0);
  cells.eofReached.store(false);
  // Rounded up, so that the fill thread, which rounds down, comes to this very frame.
  cells.pendingSeekUsec.store(
      static_cast<std::int64_t>(std::ceil(static_cast<double>(frame) * 1e6 / fileRate)));
  playing->waker.signal();
}

void AudioEngine::Impl::resume() {
  if (!output.isOpen() || nowPlaying.state() != PlaybackState::paused) return;
  setRendering(true);
  if (const AudioStatus status = output.resume(); !status.ok()) {
    // The device went away or was taken while we were paused: set it up anew, or say why not.
    log::line("⚠️ Output did not resume: {}", status.description());
    auto where = interrupt();
    if (!where) return;
    where->paused = false;
    goOn(*where);
    return;
  }
  sleepInhibitor.acquire();
  changeState(PlaybackState::playing);
  progressTimer.start();
}

void AudioEngine::Impl::seek(double time) {
  const auto playing = currentSession();
  if (!playing || playing->fileFormat.sampleRate <= 0 || std::isnan(time)) return;

  const double duration = nowPlaying.duration();
  const double end = duration > 0 ? duration : kLongestTrack;
  const double target = std::clamp(time, 0.0, end);

  // The displayed position jumps at once; the fill thread does the rest. The wish itself comes
  // last: from then on these cells are the fill thread's.
  TransportCells& cells = playing->cells;
  cells.seekFrameOffset.store(static_cast<std::int64_t>(target * playing->fileFormat.sampleRate));
  cells.framesReadFromBuffer.store(0);
  cells.eofReached.store(false);
  cells.pendingSeekUsec.store(std::llround(target * 1e6));
  playing->waker.signal();
}

double AudioEngine::Impl::currentPosition() const {
  const auto playing = currentSession();
  if (!playing) return 0;
  const double fileRate = playing->fileFormat.sampleRate;
  if (fileRate <= 0) return 0;

  const TransportCells& cells = playing->cells;
  // While the fill thread is still at an earlier seek, the wish is the position.
  const std::int64_t wished = cells.pendingSeekUsec.load(std::memory_order_acquire);
  if (wished >= 0) return static_cast<double>(wished) / 1e6;
  const auto played = static_cast<double>(
      std::max<std::int64_t>(0, cells.framesReadFromBuffer.load(std::memory_order_acquire) -
                                    cells.playbackLatencyFrames.load()));
  const auto offset = static_cast<double>(cells.seekFrameOffset.load());
  // The ring runs at the client rate, the offset counts frames of the file.
  return offset / fileRate + played / playing->clientFormat.sampleRate;
}

void AudioEngine::Impl::stopAndAdvance(int generation) {
  {
    RecursiveMutexLock hold(lifecycleLock);
    // Another play() or stop() came first: this end is no news any more.
    if (playGeneration.load() != generation) return;
    stop();
  }
  bus.postOnMain(PlayNextTrack{.autoAdvance = true});
}

}  // namespace velorin
