#include "engine/fill/FillPCM.h"

#include <algorithm>
#include <new>

#include "foundation/Log.h"

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

bool FillPCM::shouldRun() const noexcept {
  return _session.cells.fillThreadShouldRun.load(std::memory_order_acquire);
}

FillPCM::End FillPCM::run(const std::function<void()>& betweenBlocks) noexcept {
  try {
    while (shouldRun()) {
      betweenBlocks();
      if (pass() == Pass::trackEnded) return End::trackEnded;
    }
  } catch (const std::bad_alloc&) {
    log::line("❌ Not enough memory to go on with {}", titleOf(_session.source->track));
    return End::trackEnded;
  }
  return End::stopped;
}

FillPCM::Pass FillPCM::pass() {
  if (handlePendingSeek()) return Pass::goOn;
  const std::uint64_t wish = _session.joins->nextTrack.version();
  const TrackJoins::Watched watched = _joins.watch();
  if (watched == TrackJoins::Watched::backInside) _end.reset();
  if (watched == TrackJoins::Watched::backAtEnd) {
    const bool wasBounded = _session.source->bounds.end > 0;
    _end = SourceEnd{
        .cause = wasBounded ? TrackJoins::EndCause::cueEnd : TrackJoins::EndCause::endOfStream,
        .considered = {},
        .next = {},
        .isDrained = true};
  }
  // At the source's end it is answered by what is found to follow.
  const bool isSettled = _end && _session.join.isIdle();
  if (!isSettled && _joins.hasAnswered(wish)) _session.cells.answeredWish.store(wish);
  if (_end) return atSourceEnd();
  if (!waitForSpace(_session.reader->chunk())) return Pass::goOn;
  const CrossfadeJoin::Outlook outlook = _joins.crossfade().outlook();
  switch (outlook.step) {
    case CrossfadeJoin::Outlook::Step::read:
      readBlock(outlook.frames);
      break;
    case CrossfadeJoin::Outlook::Step::wait:
      stall();
      break;
    case CrossfadeJoin::Outlook::Step::start:
      _joins.crossfadeTo(outlook.wish);
      break;
  }
  return Pass::goOn;
}

void FillPCM::readBlock(std::uint32_t wanted) {
  switch (_session.reader->read(wanted)) {
    case SourceReader::Outcome::produced:
      _joins.crossfade().write();
      return;
    case SourceReader::Outcome::cueEnd:
      _end = SourceEnd{.cause = TrackJoins::EndCause::cueEnd, .considered = {}, .next = {}};
      return;
    case SourceReader::Outcome::endOfStream:
      _end = SourceEnd{.cause = TrackJoins::EndCause::endOfStream, .considered = {}, .next = {}};
      return;
    case SourceReader::Outcome::failed:
      // Counts as the end: the listener goes on with the next track.
      _end = SourceEnd{.cause = TrackJoins::EndCause::failed, .considered = {}, .next = {}};
      return;
  }
}

FillPCM::Pass FillPCM::atSourceEnd() {
  if (_joins.crossfade().isActive()) return endFade();
  if (!_session.join.isIdle()) {
    waitForJoinToBeHeard();
    return Pass::goOn;
  }
  if (considerWish()) return Pass::goOn;
  if (_end->next) {
    // A resampler that goes on keeps its tail: the next track brings it out.
    if ((!_end->next->continuesResampler || _end->isDraining) && !_end->isDrained) {
      drainStep();
      return Pass::goOn;
    }
    _joins.commit(std::move(*_end->next), _end->isDrained);
    _end.reset();
    return Pass::goOn;
  }
  if (!_end->isDrained) {
    drainStep();
    return Pass::goOn;
  }
  return playOut();
}

FillPCM::Pass FillPCM::endFade() {
  // The new track is shorter than the fade: the old one ends with it.
  if (_end->isDrained) {
    _joins.finishCrossfade();
  } else {
    drainStep();
  }
  return Pass::goOn;
}

bool FillPCM::considerWish() {
  const std::uint64_t version = _session.joins->nextTrack.version();
  if (_end->considered == version) return false;
  _end->considered = version;
  // Behind an empty ring there is silence already: too late to join.
  const bool isTooLate = _session.cells.eofReached.load() && _session.ring.framesHeld() == 0;
  _end->next = isTooLate ? std::nullopt : _joins.prepare(_end->cause);
  if (_end->next) _session.cells.eofReached.store(false);
  _session.cells.answeredWish.store(version);
  // It may have changed again while a slow file was opened.
  return true;
}

void FillPCM::waitForJoinToBeHeard() {
  if ((_joins.owesBoundary() || _end->isDraining) && !_end->isDrained) {
    // A track that is shorter than the filter: nothing else would ever push the old one's last
    // frames out.
    drainStep();
    return;
  }
  stall();
}

void FillPCM::stall() noexcept {
  _session.cells.fillStalled.store(true);
  const std::int64_t countdown = _session.clock.countdown();
  sleep(countdown > 0 ? napOf(countdown) : kLongestNap);
  _session.cells.fillStalled.store(false);
}

void FillPCM::drainStep() {
  SourceReader* reader = _session.reader.get();
  if (reader == nullptr) {
    _end->isDrained = true;
    return;
  }
  if (!waitForSpace(reader->chunk())) return;
  _end->isDraining = true;
  if (reader->drain()) {
    _joins.crossfade().write();
  } else {
    _end->isDrained = true;
  }
}

FillPCM::Pass FillPCM::playOut() noexcept {
  TransportCells& cells = _session.cells;
  if (!cells.eofReached.load()) {
    cells.framesAfterEnd.store(0);
    cells.eofReached.store(true);
  }
  // The ring is empty before the device is: what it still holds must be heard. A seek or a next
  // track that comes meanwhile brings the stream back.
  const bool heard =
      _session.ring.framesHeld() == 0 &&
      cells.framesAfterEnd.load(std::memory_order_acquire) >= cells.playbackLatencyFrames.load();
  if (heard) return Pass::trackEnded;
  sleep(kDrainNap);
  return Pass::goOn;
}

milliseconds FillPCM::napOf(std::int64_t frames) const noexcept {
  const auto until = milliseconds(static_cast<std::int64_t>(1000.0 * static_cast<double>(frames) /
                                                            _session.clientFormat.sampleRate));
  return std::clamp(until, kShortestNap, kLongestNap);
}

bool FillPCM::waitForSpace(std::uint32_t frames) noexcept {
  const auto missing = [&] { return frames + _session.framesKept - _session.ring.freeSpace(); };
  if (missing() <= 0) return true;
  // By the time the device has taken what is missing there is work again, not before; or when a
  // joined track is heard.
  std::int64_t until = missing();
  if (const std::int64_t countdown = _session.clock.countdown(); countdown > 0) {
    until = std::min(until, countdown);
  }
  sleep(napOf(until));
  return missing() <= 0;
}

void FillPCM::sleep(milliseconds whileRendering) noexcept {
  // Read once: were the nap chosen by another reading than the one that is watched, a resume that
  // falls between the two would be slept through.
  const bool wasRendering = _session.cells.rendering.load();
  const std::uint64_t wish = _session.joins->nextTrack.version();
  const PendingJoin::State join = _session.join.state();
  _session.waker.sleepFor(wasRendering ? whileRendering : kPausedNap, [&] {
    return !shouldRun() || _session.seek.isPending() ||
           _session.cells.rendering.load() != wasRendering ||
           _session.joins->nextTrack.version() != wish || _session.join.state() != join;
  });
}

bool FillPCM::handlePendingSeek() {
  const auto wish = _session.seek.get();
  if (!wish) return false;
  if (!prepareSource(*wish)) {
    _session.seek.done(*wish);
    return true;
  }
  SourceReader* reader = _session.reader.get();
  // Without a file there is the end of it.
  const double seconds = reader != nullptr ? reader->seek(wish->usec) : 0;
  _end.reset();
  if (reader == nullptr) {
    _end = SourceEnd{.cause = TrackJoins::EndCause::failed, .considered = {}, .next = {}};
  }
  TransportCells& cells = _session.cells;
  cells.eofReached.store(false);
  _session.clock.jump(_session.source, seconds);
  // No render call adds to it any more.
  cells.framesAfterEnd.store(0);
  // Until here the seek stays pending, so that nobody takes the old frames for the new ones. One
  // that was asked for meanwhile stays so.
  _session.seek.done(*wish);
  prefillAfterSeek();
  return true;
}

bool FillPCM::prepareSource(const PendingSeek::Wish& wish) {
  const bool isJump = wish.jumpTo != nullptr;
  const bool hasLeft = _joins.beforeSeek(isJump);
  if (isJump) _session.source = wish.jumpTo;
  std::unique_ptr<SourceReader>& reader = _session.reader;
  if (reader && reader->facts().track.filePath == _session.source->track.filePath) {
    reader->setFacts(_session.source);
    return true;
  }
  reader.reset();
  reader = reopenSource(_session, _session.source);
  // A seek back in a file that is gone is dropped, unless what was read has been left for it.
  return reader != nullptr || hasLeft;
}

void FillPCM::prefillAfterSeek() {
  const std::int64_t wanted =
      _session.ring.framesWritten() + prefillFor(_session.cells.ioBufferFrameSize.load());
  while (shouldRun() && !_end && _session.ring.framesWritten() < wanted &&
         _session.ring.freeSpace() >= _session.reader->chunk()) {
    const CrossfadeJoin::Outlook outlook = _joins.crossfade().outlook();
    if (outlook.step != CrossfadeJoin::Outlook::Step::read) return;
    readBlock(outlook.frames);
  }
}

}  // namespace velorin
