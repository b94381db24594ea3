#include "engine/joins/GaplessJoin.h"

#include <fmt/format.h>

#include <cmath>

#include "foundation/Text.h"

namespace velorin {
namespace {

/// Seconds between two CUE tracks that count as none.
constexpr double kContiguous = 0.01;

}  // namespace

std::optional<PreparedJoin> prepareGaplessJoin(const PlaybackSession& session,
                                               const NextTrack::Wish& wish) {
  auto opened = openNextSource(session, wish.track, "Gapless");
  if (!opened) return std::nullopt;
  PreparedJoin prepared;
  prepared.wish = wish;
  prepared.facts = opened->facts;
  prepared.continuesResampler = opened->continuesResampler;
  prepared.opened = std::move(opened);
  prepared.line = prepared.facts.dsd
                      ? fmt::format("🔗 DSD gapless → {} [{}]", titleOf(wish.track),
                                    conversionText(*prepared.facts.dsd))
                      : fmt::format("🔗 Gapless transition → {} [{}]", titleOf(wish.track),
                                    text::fileExtension(wish.track.filePath));
  return prepared;
}

std::optional<PreparedJoin> prepareCueBoundary(const PlaybackSession& session,
                                               const NextTrack::Wish& wish) {
  const SourceFacts& old = *session.source;
  const Track& next = wish.track;
  if (next.filePath != old.track.filePath || !next.cueStartTime) return std::nullopt;
  // A join that was taken back has closed the file.
  if (!session.reader) return prepareGaplessJoin(session, wish);

  PreparedJoin prepared;
  prepared.wish = wish;
  prepared.facts = sameFile(old, next);
  const double rate = old.fileFormat.sampleRate;
  const double start = *next.cueStartTime;
  const double nextEnd = next.cueEndTime.value_or(0);
  const double end = nextEnd > 0 ? nextEnd : static_cast<double>(old.totalFrames) / rate;
  const double oldEnd = old.track.cueEndTime.value_or(0);
  const bool contiguous = oldEnd > 0 && std::abs(oldEnd - start) < kContiguous;
  if (!contiguous) prepared.moveTo = framesAt(start, rate);
  prepared.line = fmt::format("🔗 CUE gapless → {} [{:.1f}→{:.1f}s]{}", titleOf(next), start, end,
                              contiguous ? "" : " (seek)");
  return prepared;
}

}  // namespace velorin
