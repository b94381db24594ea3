#include "engine/fill/FillPCM.h"

#include <cmath>

namespace velorin {
namespace {

using std::chrono::milliseconds;

constexpr std::uint32_t kMinimumIoBufferForDoublePrefill = 2048;
constexpr std::uint32_t kSmallestPrefill = 4096;

/// A ring that is full is looked at again after this, or as soon as it can have room.
constexpr milliseconds kShortestNap{5};
constexpr milliseconds kLongestNap{50};
/// Nothing happens by itself while the output is paused; every change signals the waker.
constexpr milliseconds kPausedNap{10'000};
constexpr milliseconds kDrainNap{10};

std::uint32_t prefillFor(std::uint32_t ioBufferFrames) {
  return ioBufferFrames >= kMinimumIoBufferForDoublePrefill ? 2 * ioBufferFrames : kSmallestPrefill;
}

}  // namespace

FillPCM::FillPCM(PlaybackSession& session)
    : _session(session),
      _stage(*session.decoder, session.resampler.get(), session.clientFormat,
             session.isIntegerOutput, *session.ring) {}

bool FillPCM::shouldRun() const noexcept {
  return _session.cells.fillThreadShouldRun.load(std::memory_order_acquire);
}

bool FillPCM::seekIsPending() const noexcept {
  return _session.cells.pendingSeekUsec.load(std::memory_order_acquire) >= 0;
}

FillPCM::End FillPCM::run(const std::function<void()>& betweenBlocks) noexcept {
  while (shouldRun()) {
    betweenBlocks();
    if (pass() == Pass::goOn) continue;
    finishStream();
    // A seek while the last frames play brings the track back.
    if (drainRing()) return End::trackEnded;
  }
  return End::stopped;
}

FillPCM::Pass FillPCM::pass() noexcept {
  TransportCells& cells = _session.cells;
  if (handlePendingSeek()) return Pass::goOn;
  if (!waitForSpace(_stage.chunk())) return Pass::goOn;

  std::uint32_t wanted = DecodeStage::kBlockFrames;
  const std::int64_t end = cells.cueEndFrame.load(std::memory_order_acquire);
  if (end >= 1) {
    const std::int64_t remaining = end - _session.decoder->currentPosition();
    if (remaining <= 0) return Pass::streamEnded;
    wanted = static_cast<std::uint32_t>(std::min<std::int64_t>(wanted, remaining));
  }
  // A read error counts as the end: the listener goes on with the next track.
  return _stage.step(wanted) == DecodeStage::Outcome::wrote ? Pass::goOn : Pass::streamEnded;
}

void FillPCM::finishStream() noexcept {
  bool more = true;
  while (more && shouldRun() && !seekIsPending()) {
    if (waitForSpace(_stage.chunk())) more = _stage.drainStep();
  }
  if (more) return;
  _session.cells.framesAfterEnd.store(0);
  _session.cells.eofReached.store(true);
}

bool FillPCM::drainRing() noexcept {
  TransportCells& cells = _session.cells;
  while (shouldRun() && !seekIsPending()) {
    // The ring is empty before the device is: what it still holds must be heard.
    const bool heard =
        _session.ring->framesHeld() == 0 &&
        cells.framesAfterEnd.load(std::memory_order_acquire) >= cells.playbackLatencyFrames.load();
    if (heard) return true;
    sleep(kDrainNap);
  }
  return false;
}

bool FillPCM::waitForSpace(std::uint32_t frames) noexcept {
  const std::int64_t missing = frames - _session.ring->freeSpace();
  if (missing <= 0) return true;
  // By the time the device has taken what is missing there is work again, not before.
  const auto until = milliseconds(static_cast<std::int64_t>(1000.0 * static_cast<double>(missing) /
                                                            _session.clientFormat.sampleRate));
  sleep(std::clamp(until, kShortestNap, kLongestNap));
  return _session.ring->freeSpace() >= frames;
}

void FillPCM::sleep(milliseconds whileRendering) noexcept {
  // Read once: were the nap chosen by another reading than the one that is watched, a resume that
  // falls between the two would be slept through.
  const bool wasRendering = _session.cells.rendering.load();
  _session.waker.sleepFor(wasRendering ? whileRendering : kPausedNap, [&] {
    return !shouldRun() || seekIsPending() || _session.cells.rendering.load() != wasRendering;
  });
}

bool FillPCM::handlePendingSeek() noexcept {
  TransportCells& cells = _session.cells;
  std::int64_t usec = cells.pendingSeekUsec.load(std::memory_order_acquire);
  if (usec < 0) return false;

  // In whole frames, so that a position asked for is met to the frame.
  const double fileRate = _session.fileFormat.sampleRate;
  const auto target =
      static_cast<std::int64_t>(static_cast<long double>(usec) * fileRate / 1'000'000.0L);
  const std::int64_t start = cells.cueStartOffsetFrames.load();
  std::int64_t absolute = start + target;
  const std::int64_t cueEnd = cells.cueEndFrame.load();
  const std::int64_t total = _session.decoder->totalFrames();
  if (cueEnd >= 1) absolute = std::min(absolute, cueEnd);

  // A time past the end is the end: its last frame is the nearest that can be decoded.
  if (total > 0) absolute = std::min(absolute, total - 1);
  // A position that cannot be reached is dropped; the stream goes on from where it stands.
  _session.decoder->seek(absolute);
  _stage.reset();
  {
    RenderGate::Closed closed(_session.gate);
    _session.ring->flush();
    cells.seekFrameOffset.store(std::max<std::int64_t>(0, absolute - start));
    cells.framesReadFromBuffer.store(0);
    cells.framesAfterEnd.store(0);
    cells.eofReached.store(false);
  }
  // Until here the seek stays pending, so that nobody takes the old frames for the new ones. One
  // that was asked for meanwhile stays so.
  cells.pendingSeekUsec.compare_exchange_strong(usec, TransportCells::kNoSeek);

  const std::int64_t wanted = _stage.framesWritten() + prefillFor(cells.ioBufferFrameSize.load());
  while (shouldRun() && _stage.framesWritten() < wanted &&
         _session.ring->freeSpace() >= _stage.chunk()) {
    std::uint32_t block = DecodeStage::kBlockFrames;
    if (cueEnd >= 1) {
      const std::int64_t remaining = cueEnd - _session.decoder->currentPosition();
      if (remaining <= 0) break;
      block = static_cast<std::uint32_t>(std::min<std::int64_t>(block, remaining));
    }
    if (_stage.step(block) != DecodeStage::Outcome::wrote) break;
  }
  return true;
}

}  // namespace velorin
