// The effects that depend on what plays.
#pragma once

#include <optional>

namespace velorin {

class AudioEngine;
struct Track;

/// ReplayGain as the track's tags have it, and the headroom for what all effects can add to that
/// track. Engine queue: before the track is started, or when a joined one is heard.
void prepareEffects(const Track& track, AudioEngine& engine);

/// The same after a change of the effects, for what plays. Without a track the headroom is that of
/// the effects which need none.
void updateHeadroom(const std::optional<Track>& track, AudioEngine& engine);

}  // namespace velorin
