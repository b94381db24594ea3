#include "session/TrackEffects.h"

#include "dsp/DSPEffects.h"
#include "engine/AudioEngine.h"
#include "records/Track.h"

namespace velorin {

void prepareEffects(const Track& track, AudioEngine& engine) {
  DSPEffects& effects = engine.effects();
  const TrackGain gain = trackGain(track, effects.replayGain.mode());
  effects.replayGain.setTrackGain(static_cast<float>(gain.gainDB), static_cast<float>(gain.peak));
  effects.headroomDSP.setHeadroom(static_cast<float>(effects.requiredHeadroomDB(&track)));
}

void updateHeadroom(const std::optional<Track>& track, AudioEngine& engine) {
  if (track) return prepareEffects(*track, engine);
  DSPEffects& effects = engine.effects();
  effects.headroomDSP.setHeadroom(effects.requiredHeadroomDB(nullptr));
}

}  // namespace velorin
