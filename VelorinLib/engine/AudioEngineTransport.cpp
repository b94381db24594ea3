// Stop, pause, resume, seek, position, and the end of a track.
#include "engine/AudioEngineImpl.h"
#include "engine/joins/Prefetch.h"
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
  if (const auto playing = currentSession()) playing->seek.cancel();
  releaseStream();
  dropPrefetched(joins);
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
  if (!playing || playing->seek.isPending()) return;
  // What was rendered last behind the end is silence, and no loss.
  const std::int64_t silence = playing->cells.framesAfterEnd.exchange(0);
  const auto dropped = static_cast<std::int64_t>(clientFrames) - silence;
  if (dropped <= 0) return;
  if (!playing->clock.takeBack(dropped, playing->framesKept)) {
    // More than the ring keeps: decoded once more, rounded up, so that the fill thread, which
    // rounds down, comes to this very frame.
    playing->cells.eofReached.store(false);
    playing->seek.ask(
        static_cast<std::int64_t>(std::ceil(playing->clock.read(dropped).seconds * 1e6)));
  }
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
  if (!playing || std::isnan(time)) return;

  const double duration = nowPlaying.duration();
  const double end = duration > 0 ? duration : kLongestTrack;
  // The displayed position jumps at once; the fill thread does the rest.
  playing->seek.ask(std::llround(std::clamp(time, 0.0, end) * 1e6));
  playing->waker.signal();
}

SharedFacts AudioEngine::Impl::heardSource() const {
  const auto playing = currentSession();
  return playing ? playing->clock.read(0).facts : nullptr;
}

double AudioEngine::Impl::currentPosition() const {
  const auto playing = currentSession();
  if (!playing) return 0;
  // While the fill thread is still at an earlier seek, the wish is the position.
  const std::int64_t wished = playing->seek.usec();
  if (wished >= 0) return static_cast<double>(wished) / 1e6;
  const auto [facts, seconds] = playing->clock.read(playing->cells.playbackLatencyFrames.load());
  // A crossfade may outlast the old track, which is the one that is told until the fade's end.
  return facts && facts->duration > 0 ? std::min(seconds, facts->duration) : seconds;
}

void AudioEngine::Impl::stopAndAdvance(int generation) {
  {
    RecursiveMutexLock hold(lifecycleLock);
    // Another play() or stop() came first: this end is no news any more.
    if (playGeneration.load() != generation) return;
    stop();
    // It was refused, or there was none: what comes now is the controller's choice.
    joins->nextTrack.set(std::nullopt);
  }
  bus.postOnMain(PlayNextTrack{.autoAdvance = true});
}

}  // namespace velorin
