#include "PlayRun.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <utility>

#include "FileFacts.h"
#include "engine/AudioEngine.h"
#include "foundation/EventBus.h"
#include "foundation/MainThread.h"
#include "foundation/SerialQueue.h"
#include "session/PlayerState.h"

namespace velorin {
namespace {

/// An engine that has stopped tells right after whether the track had played out.
constexpr std::chrono::milliseconds kEndOfTrackNotice{3000};
/// A little more than the player waits for another skip.
constexpr std::chrono::milliseconds kBurst{400};

}  // namespace

struct PlayRun::Impl : std::enable_shared_from_this<Impl> {
  using Clock = std::chrono::steady_clock;

  PlayerState& player;
  PlayRunListener& listener;

  std::optional<TrackInfo> heard;    ///< the track that the listener was told of
  bool isStarting = false;           ///< the player waits for a track to be heard
  bool isFileAtFault = false;        ///< the last start came to nothing for its file
  std::size_t reasonsLookedFor = 0;  ///< of files that cannot be played
  bool endsAfterReasons = false;
  bool hasEnded = false;
  Clock::time_point lastSkip{};
  std::vector<EventBus::Subscription> subscriptions;
  PlayerState::Observation observation;

  Impl(PlayerState& thePlayer, PlayRunListener& theListener)
      : player(thePlayer), listener(theListener) {}

  void subscribe(EventBus& bus) {
    subscriptions.push_back(bus.subscribe<TrackDidChange>(
        Delivery::mainThread, [this](const TrackDidChange& event) { trackDidChange(event); }));
    subscriptions.push_back(bus.subscribe<PlayNextTrack>(
        Delivery::mainThread, [this](const PlayNextTrack& event) { playNextTrack(event); }));
    subscriptions.push_back(bus.subscribe<PlaybackFileUnavailable>(
        Delivery::mainThread,
        [this](const PlaybackFileUnavailable& event) { fileUnavailable(event.path); }));
    observation = player.observe([this](PlayerChanges changes) {
      if (changes.has(PlayerChange::state)) stateChanged();
    });
  }

  void after(std::chrono::milliseconds delay, void (Impl::*task)()) {
    MainThread::instance().postAfter(delay, [self = weak_from_this(), task] {
      if (const auto alive = self.lock()) (alive.get()->*task)();
    });
  }

  void trackDidChange(const TrackDidChange& event) {
    endHeard(event.join.has_value());
    isStarting = false;
    isFileAtFault = false;
    TrackInfo info;
    info.track = event.track;
    // In a burst of skips the player shows another track already.
    if (player.currentTrack() && isSameItem(player.currentTrack()->track, event.track)) {
      info = *player.currentTrack();
    }
    heard = info;
    listener.trackStarted(info, event.join);
  }

  void playNextTrack(const PlayNextTrack& event) {
    endHeard(event.autoAdvance);
    endIfNothingFollows();
  }

  /// The player has heard of the track's end before us, and plays on if there is anything left.
  void endIfNothingFollows() {
    if (player.isLoading() || heard) return;
    // Where a burst of skips leads to is played when it is over.
    if (Clock::now() < lastSkip + kBurst) return after(kBurst, &Impl::endIfNothingFollows);
    end(/*outputFailed=*/false);
  }

  /// The player passes over the file by itself; what is wrong with it is found out here.
  void fileUnavailable(const std::string& path) {
    endHeard(false);
    isFileAtFault = true;
    ++reasonsLookedFor;
    player.engineQueue().async([weak = weak_from_this(), path] {
      const auto facts = readFileFacts(path);
      const std::string reason =
          facts ? "the file cannot be opened any more; was it removed?" : facts.error().text;
      MainThread::instance().post([weak, path, reason] {
        if (const auto self = weak.lock()) self->reasonFound(path, reason);
      });
    });
  }

  void reasonFound(const std::string& path, const std::string& reason) {
    --reasonsLookedFor;
    if (hasEnded) return;
    listener.trackFailed(path, reason);
    if (endsAfterReasons && reasonsLookedFor == 0) end(/*outputFailed=*/false);
  }

  void stateChanged() {
    if (player.isLoading()) {
      isStarting = true;
    } else if (player.state() != PlaybackState::stopped) {
      return;
    } else if (heard) {
      after(kEndOfTrackNotice, &Impl::endIfSilent);
    } else if (std::exchange(isStarting, false)) {
      // A start came to nothing, and the player found nothing to go on with.
      if (!isFileAtFault) return end(/*outputFailed=*/true);
      endsAfterReasons = true;
      if (reasonsLookedFor == 0) end(/*outputFailed=*/false);
    }
  }

  void endIfSilent() {
    const bool isSilent = !player.isLoading() && player.state() == PlaybackState::stopped;
    if (heard && isSilent) end(/*outputFailed=*/true);
  }

  bool isAtEnd() const {
    return player.repeatMode() == RepeatMode::off && !player.historyNavigationIndex() &&
           player.timelineIndex() + 1 >= static_cast<int>(player.timeline().size());
  }

  void endHeard(bool playedOut) {
    if (const auto track = std::exchange(heard, std::nullopt)) {
      listener.trackEnded(*track, playedOut);
    }
  }

  void end(bool outputFailed) {
    if (std::exchange(hasEnded, true)) return;
    listener.runEnded(outputFailed);
  }
};

PlayRun::PlayRun(PlayerState& player, EventBus& bus, PlayRunListener& listener)
    : _impl(std::make_shared<Impl>(player, listener)) {
  _impl->subscribe(bus);
}

PlayRun::~PlayRun() {
  _impl->subscriptions.clear();
  _impl->observation.reset();
}

void PlayRun::start(std::vector<TrackInfo> tracks, std::size_t first,
                    std::optional<double> startTime) {
  // The engine learns what follows before it begins: how a short track is joined to the next one is
  // not to depend on which thread is faster.
  std::promise<void> isKnown;
  _impl->player.engineQueue().async([known = isKnown.get_future().share()] { known.wait(); });
  _impl->player.playTracks(std::move(tracks), first, startTime.value_or(0));
  isKnown.set_value();
}

void PlayRun::goOn(std::size_t index) {
  _impl->hasEnded = false;
  _impl->endsAfterReasons = false;
  _impl->player.playFromTimeline(index);
}

void PlayRun::next() {
  if (_impl->isAtEnd()) {
    _impl->endHeard(false);
    return _impl->end(/*outputFailed=*/false);
  }
  _impl->lastSkip = Impl::Clock::now();
  _impl->player.nextDebounced();
}

void PlayRun::previous() {
  _impl->lastSkip = Impl::Clock::now();
  _impl->player.previousDebounced();
}

std::size_t PlayRun::numberOf(const TrackInfo& track) const {
  const auto& timeline = _impl->player.timeline();
  const auto current = static_cast<std::size_t>(std::max(_impl->player.timelineIndex(), 0));
  if (current < timeline.size() && isSameItem(timeline[current], track)) return current + 1;
  // One that is left, or in the player's history.
  for (std::size_t i = 0; i < timeline.size(); ++i) {
    if (isSameItem(timeline[i], track)) return i + 1;
  }
  return current + 1;
}

}  // namespace velorin
