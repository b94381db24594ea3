#include "TrackSequence.h"

#include <atomic>
#include <chrono>
#include <system_error>

#include "AudioSetup.h"
#include "engine/AudioEngine.h"
#include "foundation/MainThread.h"
#include "foundation/SerialQueue.h"
#include "foundation/Text.h"
#include "records/Events.h"

namespace velorin {
namespace {

/// An engine that has stopped tells right after whether the track had played out.
constexpr std::chrono::milliseconds kEndOfTrackNotice{3000};

Track trackOf(const PlayListEntry& entry, const FileFacts& file) {
  Track track = entry.info ? entry.info->track : Track();
  track.filePath = file.path.native();
  if (!entry.info) {
    track.title = file.title.empty() ? text::toValidUTF8(file.path.stem().native()) : file.title;
    track.duration = file.duration();
  }
  track.sampleRate = static_cast<int>(file.sampleRate);
  track.bitDepth = static_cast<int>(file.bitsPerSample);
  track.channels = static_cast<int>(file.channels);
  track.format = file.format;
  track.replayGainTrackGain = file.trackGain;
  track.replayGainAlbumGain = file.albumGain;
  track.replayGainTrackPeak = file.trackPeak;
  track.replayGainAlbumPeak = file.albumPeak;
  return track;
}

}  // namespace

// A request is one attempt to play one file; each gets a number. Every message of a request
// reaches the main thread in the order: opened, the engine's events, returned. What arrives for
// a request that is no longer the latest is stale and dropped.
struct TrackSequence::Impl : std::enable_shared_from_this<Impl> {
  enum class Phase { waiting, opened, started, failed };

  AudioEngine& engine;
  SerialQueue& engineQueue;
  const std::vector<PlayListEntry> files;
  TrackSequenceListener& listener;

  std::atomic<std::uint64_t> latest{0};  ///< number of the latest request
  std::uint64_t active = 0;              ///< the request the engine's events belong to
  std::size_t index = 0;                 ///< file of the latest request
  bool forward = true;                   ///< where to go from a file that cannot be played
  Phase phase = Phase::waiting;          ///< of the active request
  FileFacts file;                        ///< of the active request
  std::string reasonIfUnavailable;       ///< of the active request
  std::optional<std::size_t> heard;      ///< the track that the listener was told of
  std::vector<EventBus::Subscription> subscriptions;

  Impl(AudioEngine& theEngine, SerialQueue& queue, std::vector<PlayListEntry> theFiles,
       TrackSequenceListener& theListener)
      : engine(theEngine), engineQueue(queue), files(std::move(theFiles)), listener(theListener) {}

  void subscribe(EventBus& bus) {
    subscriptions.push_back(bus.subscribe<TrackDidChange>(
        Delivery::mainThread, [this](const TrackDidChange&) { trackDidChange(); }));
    subscriptions.push_back(bus.subscribe<PlayNextTrack>(
        Delivery::mainThread, [this](const PlayNextTrack&) { playNextTrack(); }));
    subscriptions.push_back(bus.subscribe<PlaybackFileUnavailable>(
        Delivery::mainThread, [this](const PlaybackFileUnavailable&) { fileUnavailable(); }));
    subscriptions.push_back(bus.subscribe<PlaybackStateDidChange>(
        Delivery::mainThread, [this](const PlaybackStateDidChange& event) {
          if (event.state == PlaybackState::stopped) stateBecameStopped();
        }));
  }

  bool isCurrent(std::uint64_t request) const { return request == latest; }

  template <class Function>
  void onMain(Function function) {
    MainThread::instance().post([self = weak_from_this(), function = std::move(function)] {
      if (const auto alive = self.lock()) function(*alive);
    });
  }

  void request(std::size_t wanted, std::optional<double> startTime = std::nullopt) {
    index = wanted;
    const std::uint64_t number = ++latest;
    engineQueue.async([self = shared_from_this(), number, entry = files[wanted], startTime] {
      if (number == self->latest) self->open(number, entry, startTime);
    });
  }

  /// On the engine queue.
  void open(std::uint64_t number, const PlayListEntry& entry, std::optional<double> startTime) {
    const std::filesystem::path path(entry.path);
    const auto facts = readFileFacts(path);
    std::error_code error;
    // A file that is not there may be on a volume that the engine can bring back.
    if (!facts && std::filesystem::exists(path, error)) {
      return onMain([number, reason = facts.error().text](Impl& self) {
        if (self.isCurrent(number)) self.fail(reason);
      });
    }
    FileFacts known;
    known.path = path;
    if (facts) known = facts.value();
    if (entry.info) known.title = entry.info->track.title;
    const std::string doubt =
        facts ? "the file cannot be opened any more; was it removed?" : facts.error().text;
    onMain([number, known, doubt](Impl& self) { self.opened(number, known, doubt); });
    const Track track = trackOf(entry, known);
    prepareEffects(track, engine);
    engine.play(track, startTime);
    onMain([number](Impl& self) { self.returned(number); });
  }

  void opened(std::uint64_t number, const FileFacts& facts, const std::string& doubt) {
    endHeard(false);
    active = number;
    phase = Phase::opened;
    file = facts;
    reasonIfUnavailable = doubt;
  }

  void trackDidChange() {
    if (phase != Phase::opened) return;
    phase = Phase::started;
    forward = true;
    if (active != latest) return;
    heard = index;
    listener.trackStarted(index, file);
  }

  void fileUnavailable() {
    if (phase == Phase::opened) phase = Phase::failed;
  }

  void returned(std::uint64_t number) {
    if (!isCurrent(number) || active != number) return;
    if (phase == Phase::failed) {
      fail(reasonIfUnavailable);
    } else if (phase == Phase::opened) {
      listener.sequenceEnded(/*outputFailed=*/true);
    }
  }

  void fail(const std::string& reason) {
    listener.trackFailed(index, reason);
    move();
  }

  void playNextTrack() {
    if (phase != Phase::started || active != latest) return;
    endHeard(true);
    move();
  }

  void move() {
    if (!forward && index == 0) forward = true;  // nothing before: forward again
    if (forward && index + 1 >= files.size()) return listener.sequenceEnded(false);
    request(forward ? index + 1 : index - 1);
  }

  void endHeard(bool playedOut) {
    if (const auto ended = std::exchange(heard, std::nullopt)) {
      listener.trackEnded(*ended, playedOut);
    }
  }

  void stateBecameStopped() {
    if (phase != Phase::started || active != latest) return;
    MainThread::instance().postAfter(kEndOfTrackNotice, [self = weak_from_this(), number = active] {
      const auto alive = self.lock();
      if (!alive || !alive->isCurrent(number) || !alive->heard) return;
      if (alive->engine.state() == PlaybackState::stopped) {
        alive->listener.sequenceEnded(/*outputFailed=*/true);
      }
    });
  }
};

TrackSequence::TrackSequence(AudioEngine& engine, SerialQueue& engineQueue, EventBus& bus,
                             std::vector<PlayListEntry> files, TrackSequenceListener& listener)
    : _impl(std::make_shared<Impl>(engine, engineQueue, std::move(files), listener)) {
  _impl->subscribe(bus);
}

TrackSequence::~TrackSequence() = default;

void TrackSequence::start(std::optional<double> startTime) {
  _impl->request(0, startTime);
}

void TrackSequence::next() {
  _impl->forward = true;
  if (_impl->index + 1 < _impl->files.size()) {
    _impl->request(_impl->index + 1);
  } else {
    _impl->endHeard(false);
    _impl->listener.sequenceEnded(false);
  }
}

void TrackSequence::previous() {
  _impl->forward = false;
  if (_impl->index > 0) {
    _impl->request(_impl->index - 1);
  } else {
    _impl->request(0);
  }
}

std::size_t TrackSequence::count() const noexcept {
  return _impl->files.size();
}

}  // namespace velorin
