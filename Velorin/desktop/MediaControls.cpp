#include "desktop/MediaControls.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "desktop/FolderCovers.h"
#include "desktop/NowPlaying.h"
#include "desktop/TrackInsertion.h"
#include "desktop/TrackListWindow.h"
#include "engine/AudioEngine.h"
#include "platform/desktop/MprisService.h"
#include "session/PlayerState.h"
#include "shell/OpenFiles.h"

namespace velorin {
namespace {

/// A track that starts later than this was not begun at its start.
constexpr double kStart = 0.5;

}  // namespace

struct MediaControls::Impl {
  Impl(PlayerState& thePlayer, SessionBus& bus, Options wanted)
      : player(thePlayer), options(std::move(wanted)), service(bus, commands()) {
    followTimeline();
    if (player.currentTrack() && !isSilent() && !player.isLoading()) hear();
    followState();
    observation = player.observe([this](PlayerChanges changes) { follow(changes); });
  }

  // --- What the player tells ---

  void follow(PlayerChanges changes) {
    if (changes.has(PlayerChange::timeline)) insertion.timelineChanged(player, window);
    if (changes.has(PlayerChange::timeline) || changes.has(PlayerChange::track)) followTimeline();
    followState(changes);
  }

  void followTimeline() {
    window.update(player.timeline(), player.timelineIndex());
    std::vector<MprisTrack> tracks;
    tracks.reserve(window.items().size());
    for (const auto& item : window.items()) {
      const TrackInfo& info = player.timeline()[item.index];
      tracks.push_back(mprisTrack(info, item.id, cachedCover(info)));
    }
    service.setTracks(std::move(tracks));
  }

  void followState(PlayerChanges changes = {}) {
    MprisState state = mprisState(player, status);
    status = state.status;
    if (tellsTrack(player)) {
      const TrackInfo& info = *player.currentTrack();
      state.track = mprisTrack(info, currentId(), coverOf(info));
      if (player.duration() > 0) state.track->length = microseconds(player.duration());
    }
    currentTrack = state.track ? state.track->id : 0;
    const std::int64_t at = microseconds(player.currentPosition());
    const bool jumped = hasJumped(changes);
    followPosition(at, jumped);
    service.update(std::move(state));
    if (jumped) service.seeked(at);
  }

  bool isSilent() const { return player.state() == PlaybackState::stopped && !player.isLoading(); }

  // A track that begins at its start is no jump, unless it is the one that was heard before.
  bool hasJumped(PlayerChanges changes) {
    if (isSilent()) heard.reset();
    if (currentTrack == 0 || player.isLoading()) return false;
    if (!changes.has(PlayerChange::position)) {
      // It may have moved within the lists.
      if (isHeard()) heard->id = currentTrack;
      return false;
    }
    if (!changes.has(PlayerChange::track) || isSilent()) return true;
    // Skipped already: what is shown is not what the engine told of.
    if (!isAtEngine()) return false;
    const bool isAgain = heard && heard->id == currentTrack;
    hear();
    return isAgain || player.currentPosition() > kStart;
  }

  void hear() { heard = Heard{.id = currentTrack, .item = keyOf(player.currentTrack()->track)}; }
  bool isHeard() const {
    return heard && player.currentTrack() && isSameItem(heard->item, player.currentTrack()->track);
  }

  bool isAtEngine() const {
    const auto track = player.engine().currentTrack();
    return track && isSameItem(*track, player.currentTrack()->track);
  }

  static Track keyOf(const Track& track) {
    Track key;
    key.filePath = track.filePath;
    key.cueStartTime = track.cueStartTime;
    return key;
  }

  // Where the engine's own position is not that of what is told, one is held for it: nothing
  // sounds, another track is on its way, or a seek that the engine does not know of yet.
  void followPosition(std::int64_t at, bool jumped) {
    if (isSilent() || player.isLoading() || !isHeard()) {
      *heldPosition = isSilent() ? microseconds(player.restoredPosition().value_or(0)) : at;
    } else if (jumped) {
      *heldPosition = at;
      player.engineQueue().async([held = heldPosition, at] {
        auto expected = at;
        held->compare_exchange_strong(expected, kAskEngine);
      });
    } else {
      *heldPosition = kAskEngine;
    }
  }

  // The id of the timeline's item; autoplay and history bring tracks of their own.
  MprisTrackId currentId() {
    const TrackInfo& info = *player.currentTrack();
    const auto index = static_cast<std::size_t>(player.timelineIndex());
    const bool isOfTimeline = !player.isPlayingAutoplay() && !player.historyNavigationIndex() &&
                              player.timelineIndex() >= 0 && index < player.timeline().size() &&
                              isSameItem(player.timeline()[index], info);
    if (isOfTimeline) {
      if (const auto id = window.idAt(index)) return *id;
    }
    if (!stranger || !isSameItem(stranger->second, info.track)) {
      stranger.emplace(window.newId(), keyOf(info.track));
    }
    return stranger->first;
  }

  std::string cachedCover(const TrackInfo& info) const {
    if (info.isExternal || !info.album.id || !options.coverPath) return {};
    return options.coverPath(*info.album.id);
  }

  std::string coverOf(const TrackInfo& info) {
    if (!info.isExternal) return cachedCover(info);
    return folderCovers.coverBeside(info.track.filePath, [this] { followState(); });
  }

  // --- What the desktop asks ---

  MprisCommands commands() {
    MprisCommands commands;
    commands.raise = options.raise;
    commands.quit = options.quit;
    commands.play = [this] { player.play(); };
    commands.pause = [this] { player.pause(); };
    commands.playPause = [this] { player.togglePlayPause(); };
    commands.stop = [this] { player.stop(); };
    commands.next = [this] { player.nextDebounced(); };
    commands.previous = [this] { player.previousDebounced(); };
    commands.seek = [this](std::int64_t offset) {
      seek(player.livePosition() + static_cast<double>(offset) / 1e6);
    };
    commands.setPosition = [this](MprisTrackId track, std::int64_t position) {
      if (track == currentTrack) player.seek(static_cast<double>(position) / 1e6);
    };
    commands.setLoop = [this](MprisLoop loop) { player.setRepeatMode(repeatMode(loop)); };
    commands.setShuffle = [this](bool on) { player.setShuffle(on); };
    commands.setVolume = [this](double volume) { player.setVolume(volume); };
    commands.openFile = [this](const std::string& path) {
      if (!isOpenable(path)) return false;
      player.playFiles({path});
      return true;
    };
    commands.addTrack = [this](const std::string& path, std::optional<MprisTrackId> after,
                               bool plays) {
      if (!isOpenable(path)) return false;
      insertion.add(player, window, path, after, plays);
      return true;
    };
    commands.removeTrack = [this](MprisTrackId track) {
      if (const auto index = window.indexOf(track)) player.removeFromTimeline(*index);
    };
    commands.goTo = [this](MprisTrackId track) {
      if (const auto index = window.indexOf(track)) player.playFromTimeline(*index);
    };
    commands.position = [held = heldPosition, &engine = player.engine()] {
      const std::int64_t position = *held;
      return position == kAskEngine ? microseconds(engine.currentPosition()) : position;
    };
    return commands;
  }

  void seek(double target) {
    if (player.duration() > 0 && target > player.duration()) {
      player.nextDebounced();
    } else {
      player.seek(std::max(target, 0.0));
    }
  }

  static constexpr std::int64_t kAskEngine = -1;

  PlayerState& player;
  const Options options;
  MprisStatus status = MprisStatus::stopped;
  /// What is told as the position, or kAskEngine. Any thread.
  const std::shared_ptr<std::atomic<std::int64_t>> heldPosition =
      std::make_shared<std::atomic<std::int64_t>>(0);
  MprisTrackId currentTrack = 0;  ///< as told; 0 for none
  struct Heard {
    MprisTrackId id = 0;
    Track item;
  };
  std::optional<Heard> heard;                              ///< what the engine has come to
  std::optional<std::pair<MprisTrackId, Track>> stranger;  ///< the last one from elsewhere
  TrackListWindow window;
  TrackInsertion insertion;
  MprisService service;
  FolderCovers folderCovers;
  PlayerState::Observation observation;
};

MediaControls::MediaControls(PlayerState& player, SessionBus& bus, Options options)
    : _impl(std::make_unique<Impl>(player, bus, std::move(options))) {}

MediaControls::~MediaControls() = default;

}  // namespace velorin
