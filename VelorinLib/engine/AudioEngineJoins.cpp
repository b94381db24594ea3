// The next track: the wish, and what changes when it is heard.
#include "engine/AudioEngineImpl.h"
#include "engine/joins/Prefetch.h"
#include "foundation/MainThread.h"
#include "records/Events.h"

namespace velorin {
namespace {

constexpr std::chrono::milliseconds kAnnouncementRetry{1};

}  // namespace

void AudioEngine::Impl::setNextTrack(std::optional<NextTrack::Wish> wish) {
  const bool isNew = joins->nextTrack.set(std::move(wish));
  const auto playing = currentSession();
  if (isNew && playing) playing->waker.signal();
  // What is joined already needs no second decoder.
  if (isNew || !playing || playing->join.isIdle()) {
    prefetchNextTrack(joins, nowPlaying.currentTrack());
  }
}

bool AudioEngine::Impl::takeOver(const SourceFacts& joined) {
  if (!nowPlaying.takeOver(joined)) return false;
  joins->nextTrack.take(joined.track);
  prefetchNextTrack(joins, joined.track);
  return true;
}

void AudioEngine::Impl::postTrackChange(const std::shared_ptr<Owner>& owner,
                                        const SharedFacts& joined, int generation,
                                        std::chrono::milliseconds delay) {
  MainThread::instance().postAfter(delay, [owner, joined, generation] {
    MutexLock hold(owner->mutex);
    if (owner->impl != nullptr) owner->impl->applyTrackChangeOnMain(joined, generation);
  });
}

void AudioEngine::Impl::applyTrackChangeOnMain(const SharedFacts& joined, int generation) {
  const auto playing = currentSession();
  if (playGeneration.load() != generation || !playing) return;
  if (!playing->isAnnounced.load()) {
    // The output runs, but its start is still to be told.
    postTrackChange(owner, joined, generation, kAnnouncementRetry);
    return;
  }
  // In place: when all handlers have run the next wish is known, and only then the join is over.
  if (takeOver(*joined)) {
    bus.post(TrackDidChange{joined->track, joined->sourceBitDepth, joined->join});
  }
  playing->join.applied(joined->serial);
  playing->waker.signal();
}

}  // namespace velorin
