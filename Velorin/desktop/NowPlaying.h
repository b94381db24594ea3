// What the player is at, in the terms of the desktop's media controls.
#pragma once

#include <cstdint>
#include <string>

#include "platform/desktop/MprisTypes.h"
#include "records/TrackInfo.h"
#include "session/PlayerTypes.h"

namespace velorin {

class PlayerState;

/// Times of the player as those of the bus. What is not a time (NaN, below 0) is 0.
std::int64_t microseconds(double seconds) noexcept;

MprisLoop mprisLoop(RepeatMode mode) noexcept;
RepeatMode repeatMode(MprisLoop loop) noexcept;

MprisTrack mprisTrack(const TrackInfo& info, MprisTrackId id, std::string coverPath);

/// Everything but the track. A stop that only makes way for the track that is loading is not told:
/// the status stays what it was.
MprisState mprisState(const PlayerState& player, MprisStatus before);

/// A track is there to be told of: it sounds, or would at the next press of "play" go on where it
/// was left. After a stop there is none.
bool tellsTrack(const PlayerState& player);

}  // namespace velorin
