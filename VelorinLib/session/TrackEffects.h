// The effects that depend on what plays.
#pragma once

namespace velorin {

class AudioEngine;
struct Track;

/// ReplayGain as the track's tags have it, and the headroom for what all effects can add to that
/// track. Engine queue: before the track is started, or when a joined one is heard.
void prepareEffects(const Track& track, AudioEngine& engine);

}  // namespace velorin
