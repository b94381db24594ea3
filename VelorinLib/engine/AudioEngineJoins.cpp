// The next track: the wish, and what changes when it is heard.
#include "engine/AudioEngineImpl.h"
#include "engine/joins/Prefetch.h"
#include "records/Events.h"

namespace velorin {

void AudioEngine::Impl::setNextTrack(std::optional<NextTrack::Wish> wish) {
  if (!joins->nextTrack.set(std::move(wish))) return;
  if (const auto playing = currentSession()) playing->waker.signal();
  prefetchNextTrack(joins, nowPlaying.currentTrack());
}

bool AudioEngine::Impl::takeOver(const SourceFacts& joined) {
  if (!nowPlaying.takeOver(joined)) return false;
  joins->nextTrack.take(joined.track);
  prefetchNextTrack(joins, joined.track);
  return true;
}

void AudioEngine::Impl::applyTrackChangeOnMain(const SharedFacts& joined, int generation) {
  const auto playing = currentSession();
  if (playGeneration.load() != generation || !playing) return;
  // In place: when all handlers have run the next wish is known, and only then the join is over.
  if (takeOver(*joined)) {
    bus.post(TrackDidChange{joined->track, joined->sourceBitDepth, joined->join});
  }
  playing->join.applied(joined->serial);
  playing->waker.signal();
}

}  // namespace velorin
