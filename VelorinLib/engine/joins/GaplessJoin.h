// The join of a track directly behind the last frame of the one before it, in another file or
// further on in the same one.
#pragma once

#include <memory>
#include <optional>

#include "engine/joins/NextSource.h"

namespace velorin {

/// A join that may be made once the old source's frames are in the ring.
struct PreparedJoin {
  NextTrack::Wish wish;
  /// Empty: the reader goes on in its file as the other track.
  std::optional<NextSource> opened;
  SourceFacts facts;
  /// Same file, other place: file frame to move to.
  std::optional<std::int64_t> moveTo;
  /// The old resampler goes on, so that its tail need not be drained first.
  bool continuesResampler = true;
  std::string line;  ///< for the log when it is made
};

/// `transitionToNextTrack`, up to the point where nothing is changed yet: at the end of a file.
/// Fill thread; may block on a slow file. Empty when the wish cannot be joined.
std::optional<PreparedJoin> prepareGaplessJoin(const PlaybackSession& session,
                                               const NextTrack::Wish& wish);

/// `advanceCueBoundary`, likewise: at the end of a CUE track, the next one of the same file. The
/// decoder reads on where the two touch and is moved where they do not. Either way all of the old
/// track is heard: what the ring holds of it, up to 47 s, is never dropped.
std::optional<PreparedJoin> prepareCueBoundary(const PlaybackSession& session,
                                               const NextTrack::Wish& wish);

}  // namespace velorin
