// The next track's file, opened and checked: may it be joined to the stream that runs?
//
// A join never changes what the device is given: channels, sample type and rate stay. What does not
// fit is refused, which costs a gap and never wrong audio.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "engine/PlaybackSession.h"
#include "engine/joins/RateBridge.h"

namespace velorin {

struct NextSource {
  std::unique_ptr<FileDecoder> decoder;  ///< at the track's first frame
  SourceFacts facts;
  /// The resampler of the source so far goes on with this one, or neither has one.
  bool continuesResampler = true;
  /// Otherwise: its own, or null where it is at the stream's rate.
  std::unique_ptr<ResampleStage> resampler;
};

/// Fill thread; may block on a slow file. Opens the track, from the pre-opened decoder where that
/// is it, and moves it to its CUE start. Applies the rules of channels, bit depth and rates against
/// `session.source`. Empty, with the log's line where there is one, when it cannot be joined.
/// `name` ("Gapless", "Crossfade") begins those lines; `mayBreakNative`, of a crossfade, lets
/// strategy `native` bridge rates.
std::optional<NextSource> openNextSource(const PlaybackSession& session, const Track& track,
                                         const std::string& name, bool mayBreakNative = false);

/// Opens the file of these facts once more, at its start, resampled as they say. Null when it is
/// gone or is no longer the file that it was.
std::unique_ptr<SourceReader> reopenSource(const PlaybackSession& session, SharedFacts facts);

/// How the source that is decoded now is brought to the stream's rate.
RateBridge::Resampling resamplingOf(const SourceFacts& facts) noexcept;

}  // namespace velorin
