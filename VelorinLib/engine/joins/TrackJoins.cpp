#include "engine/joins/TrackJoins.h"

#include "engine/dsd/DSDSource.h"
#include "foundation/Log.h"

namespace velorin {
namespace {

/// Frames that no render call exceeds; where buffers are larger, some of them.
constexpr std::int64_t kRenderReach = 1 << 16;
constexpr std::int64_t kBuffersOfReach = 4;

}  // namespace

std::optional<PreparedJoin> TrackJoins::prepare(EndCause cause) const {
  const JoinDesk& desk = *_session.joins;
  if (!desk.settings.gaplessEnabled() || cause == EndCause::failed) return std::nullopt;
  const auto wish = desk.nextTrack.get();
  if (!wish) return std::nullopt;
  if (cause == EndCause::cueEnd) return prepareCueBoundary(_session, *wish);
  // A CUE track whose file is shorter than its sheet says.
  if (_session.source->bounds.end > 0) return std::nullopt;
  return prepareGaplessJoin(_session, *wish);
}

void TrackJoins::commit(PreparedJoin prepared, bool isDrained) {
  std::unique_ptr<SourceReader>& reader = _session.reader;
  prepared.facts.predecessor = _session.source->serial;
  prepared.facts.join = Join::gapless;
  const auto facts = std::make_shared<const SourceFacts>(std::move(prepared.facts));
  const std::int64_t owed =
      prepared.continuesResampler && !isDrained && reader ? reader->framesOwed() : 0;
  const std::int64_t boundary = _session.ring.framesWritten() + owed;

  if (prepared.opened) {
    std::unique_ptr<ResampleStage> resampler = std::move(prepared.opened->resampler);
    if (prepared.continuesResampler && reader) resampler = reader->releaseResampler();
    if (facts->dsd && reader && facts->bounds.start == 0) {
      prepared.opened->decoder->dsd()->continueFrom(*reader->dsd());
    }
    // The old file is closed before the new one is read.
    reader.reset();
    reader = std::make_unique<SourceReader>(std::move(prepared.opened->decoder), facts,
                                            std::move(resampler), _session.clientFormat);
  } else {
    if (prepared.moveTo) reader->moveTo(*prepared.moveTo);
    reader->setFacts(facts);
  }
  if (isDrained) reader->clearResampler();

  _decoded = Decoded{.wish = std::move(prepared.wish),
                     .seenVersion = 0,
                     .from = _session.source,
                     .to = facts,
                     .cutFrame = boundary};
  _session.source = facts;
  _session.join.begin(facts->serial);
  _session.clock.announceAt(boundary, facts, 0);
  log::line("{}", prepared.line);
}

bool TrackJoins::owesBoundary() const noexcept {
  return _decoded && _session.ring.framesWritten() < _decoded->cutFrame;
}

void TrackJoins::crossfadeTo(const NextTrack::Wish& wish) {
  const auto begun = _crossfade.start(wish);
  if (!begun) return;
  _decoded = Decoded{.wish = wish,
                     .seenVersion = 0,
                     .from = begun->from,
                     .to = begun->to,
                     .cutFrame = begun->cutFrame};
}

void TrackJoins::finishCrossfade() {
  _crossfade.finish(/*wasAnnounced=*/!_decoded);
}

TrackJoins::Watched TrackJoins::watch() {
  if (!_decoded) return Watched::same;
  if (_session.clock.countdown() == 0) {
    announce();
    return Watched::same;
  }
  const NextTrack& next = _session.joins->nextTrack;
  const std::uint64_t version = next.version();
  if (version == _decoded->seenVersion) return Watched::same;
  const auto wish = next.get();
  if (wish && isSameTrack(wish->track, _decoded->wish.track)) {
    _decoded->seenVersion = version;
    return Watched::same;
  }
  return takeBack(version);
}

TrackJoins::Watched TrackJoins::takeBack(std::uint64_t version) {
  // The old track's last frames come out of the resampler with the first of the new one.
  if (owesBoundary()) return Watched::same;
  const std::int64_t reach = std::max(
      kRenderReach, kBuffersOfReach * std::int64_t{_session.cells.ioBufferFrameSize.load()});
  const bool wasFade = isFade();
  if (wasFade) {
    // What is heard of the mix already stays, and its announcement where it was to be.
    if (!_crossfade.takeBack(reach)) {
      _decoded->seenVersion = version;
      return Watched::same;
    }
  } else if (_session.clock.revoke(_decoded->cutFrame, reach)) {
    _session.reader.reset();
    _session.source = _decoded->from;
  } else {
    announce();
    return Watched::same;
  }
  log::line("🔗 Join taken back: {}", titleOf(_decoded->to->track));
  _session.join.cancel();
  _decoded.reset();
  return wasFade ? Watched::backInside : Watched::backAtEnd;
}

bool TrackJoins::beforeSeek(bool isJump) {
  const bool waits = _decoded && !isFade() && _session.clock.countdown() > 0;
  if (waits && !isJump) _session.source = _decoded->from;
  if (isJump || waits || (isFade() && _crossfade.cancel())) {
    _decoded.reset();
    _session.join.cancel();
  } else if (_decoded) {
    announce();
  }
  _crossfade.finish();
  return isJump || waits;
}

void TrackJoins::announce() {
  const SharedFacts heard = _decoded->to;
  _decoded.reset();
  _session.clock.takeOver();
  log::line("🔔 Fire {} notification → {} (userPos≈{:.1f}s)",
            heard->join == Join::gapless ? "gapless" : "crossfade", titleOf(heard->track),
            _session.clock.read(0).seconds);
  _session.join.heard(heard->serial);
  if (_session.joins->announce) _session.joins->announce(heard, _session.generation);
}

}  // namespace velorin
