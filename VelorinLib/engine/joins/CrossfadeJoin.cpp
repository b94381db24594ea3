#include "engine/joins/CrossfadeJoin.h"

#include <algorithm>
#include <cmath>

#include "engine/files/FormatNames.h"
#include "engine/joins/NextSource.h"
#include "foundation/Log.h"

namespace velorin {
namespace {

/// Seconds of sound in the ring below which a track's last stretch is decoded although there is
/// nothing to fade it into.
constexpr double kLeastHeld = 1.0;

/// Seconds that a track shall last after it was announced, so that the next one can be joined to
/// it; of a short track, half of it.
constexpr double kLeastAfterAnnouncement = 0.5;

}  // namespace

CrossfadeJoin::Outlook CrossfadeJoin::outlook() const {
  const JoinDesk& desk = *_session.joins;
  const SourceReader& reader = *_session.reader;
  const double fileRate = reader.facts().fileFormat.sampleRate;
  const std::int64_t left = reader.framesLeft();
  if (!desk.settings.crossfadeEnabled() || isActive() || left < 1) return {};
  // One-bit audio is only ever joined.
  if (reader.facts().dsd) return {};

  const std::int64_t fade = framesAt(desk.settings.crossfadeDuration(), fileRate);
  if (left > fade) {
    const auto before = std::min<std::int64_t>(left - fade, SourceReader::kBlockFrames);
    return {.frames = static_cast<std::uint32_t>(before), .wish = {}};
  }
  const std::uint64_t version = desk.nextTrack.version();
  const auto wish = desk.nextTrack.get();
  if (!_session.join.isIdle() || !wish) {
    return {.step = mayWait() ? Outlook::Step::wait : Outlook::Step::read, .wish = {}};
  }
  const Track& playing = _session.source->track;
  const bool isCueNeighbour = playing.filePath == wish->track.filePath && wish->track.cueStartTime;
  if (!wish->mayCrossfade || isCueNeighbour || isDSDFile(wish->track.filePath) ||
      _refusedVersion == version) {
    return {};
  }
  return {.step = Outlook::Step::start, .wish = *wish};
}

bool CrossfadeJoin::mayWait() const noexcept {
  const std::int64_t countdown = std::max<std::int64_t>(0, _session.clock.countdown());
  const auto reserve = framesAt(kLeastHeld, _session.clientFormat.sampleRate);
  return _session.ring.framesHeld() - countdown > reserve;
}

std::optional<CrossfadeJoin::Begun> CrossfadeJoin::start(const NextTrack::Wish& wish) {
  const StreamFormat& client = _session.clientFormat;
  const SourceFacts& old = *_session.source;
  const double seconds = _session.joins->settings.crossfadeDuration();
  log::line(
      "🔀 Crossfade trigger: remaining={:.1f}s, crossfadeDur={:.1f}s, rbBuffered={:.1f}s, "
      "userPos≈{:.1f}s",
      static_cast<double>(_session.reader->framesLeft()) / old.fileFormat.sampleRate, seconds,
      static_cast<double>(_session.ring.framesHeld()) / client.sampleRate,
      _session.clock.read(0).seconds);

  const std::uint64_t version = _session.joins->nextTrack.version();
  auto next = openNextSource(_session, wish.track, "Crossfade", /*mayBreakNative=*/true);
  // The running resampler belongs to the old side.
  if (next && next->continuesResampler && old.targetSampleRate > 0) {
    next->resampler = ResampleStage::create(next->facts.fileFormat.sampleRate, client);
    if (!next->resampler) next.reset();
  }
  if (!next) {
    _refusedVersion = version;
    return std::nullopt;
  }

  next->facts.predecessor = old.serial;
  next->facts.join = Join::crossfade;
  const auto to = std::make_shared<const SourceFacts>(std::move(next->facts));
  auto reader = std::make_unique<SourceReader>(std::move(next->decoder), to,
                                               std::move(next->resampler), client);
  const std::int64_t total = std::max<std::int64_t>(1, framesAt(seconds, client.sampleRate));
  _latest = {.from = _session.source, .to = to, .cutFrame = _session.ring.framesWritten()};
  _oldPlace = _session.reader->place();
  _fade.emplace(std::move(_session.reader), client, total, reader->chunk());
  _session.reader = std::move(reader);
  _session.source = to;
  _session.join.begin(to->serial);
  announceAt(announcement(total));
  log::line("🔀 Crossfade started → {} ({:.1f}s)", titleOf(wish.track), seconds);
  return _latest;
}

std::int64_t CrossfadeJoin::announcement(std::int64_t total) const noexcept {
  const double rate = _session.clientFormat.sampleRate;
  const std::int64_t length = framesAt(_latest.to->duration, rate);
  if (length < 1) return total;
  const std::int64_t after = std::min(framesAt(kLeastAfterAnnouncement, rate), length / 2);
  return std::min(total, length - after);
}

void CrossfadeJoin::announceAt(std::int64_t framesIntoFade) {
  _session.clock.announceAt(_latest.cutFrame + framesIntoFade, _latest.to,
                            static_cast<double>(framesIntoFade) / _session.clientFormat.sampleRate);
}

void CrossfadeJoin::write() {
  SourceReader& reader = *_session.reader;
  if (reader.frames() == 0) return;
  if (_fade) _fade->mix(reader.list(), reader.frames());
  _session.ring.write(reader.list(), reader.frames());
  if (!_fade || !_fade->isComplete()) return;
  log::line("🔀 Crossfade complete");
  _fade.reset();
}

void CrossfadeJoin::finish(bool wasAnnounced) {
  if (!_fade) return;
  // A file that was shorter than it said.
  const std::int64_t written = _fade->framesWritten();
  if (!wasAnnounced && written < announcement(_fade->framesTotal())) announceAt(written);
  _fade.reset();
}

bool CrossfadeJoin::takeBack(std::int64_t reach) {
  std::unique_ptr<SourceReader> old;
  if (!_fade) {
    old = reopenSource(_session, _latest.from);
    if (!old) return false;
  }
  if (!_session.clock.revoke(_latest.cutFrame, reach)) return false;
  if (_fade) old = _fade->release();
  old->resumeAt(_oldPlace);
  goBack(std::move(old));
  return true;
}

bool CrossfadeJoin::cancel() {
  auto old = _fade ? _fade->release() : reopenSource(_session, _latest.from);
  if (!old) return false;
  log::line("🔀 Crossfade cancelled (seek during crossfade)");
  goBack(std::move(old));
  return true;
}

void CrossfadeJoin::goBack(std::unique_ptr<SourceReader> old) {
  _fade.reset();
  _session.reader = std::move(old);
  _session.source = _latest.from;
}

}  // namespace velorin
