// Opens the next track's file ahead of its join.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "engine/joins/JoinDesk.h"
#include "records/Track.h"

namespace velorin {

/// `prefetchNextTrack`: brings the slot of the pre-opened decoder in line with the wish, on a
/// background queue of its own, which a slow share may keep busy without anyone waiting for it. A
/// decoder that was opened for a wish that has changed meanwhile is dropped, a file that cannot be
/// opened leaves the slot empty. Any thread but the render thread; never blocks.
///
/// `playing`: the next CUE track of its file needs no second decoder.
void prefetchNextTrack(const std::shared_ptr<JoinDesk>& desk, const std::optional<Track>& playing);

/// Closes a decoder that was opened ahead, on the same queue. Never blocks.
void dropPrefetched(const std::shared_ptr<JoinDesk>& desk);

}  // namespace velorin
