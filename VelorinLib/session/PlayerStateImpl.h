// The player's parts and how they are wired. Included by the PlayerState*.cpp files only.
#pragma once

#include <vector>

#include "foundation/EventBus.h"
#include "foundation/MainThread.h"
#include "session/ABComparison.h"
#include "session/AutoplayQueue.h"
#include "session/Bookmarks.h"
#include "session/ChangeBroadcast.h"
#include "session/EngineLink.h"
#include "session/ExternalFiles.h"
#include "session/HistoryStore.h"
#include "session/HistoryTrail.h"
#include "session/Lifeline.h"
#include "session/ListenCounter.h"
#include "session/PlayerSettings.h"
#include "session/PlayerState.h"
#include "session/PositionKeeper.h"
#include "session/QueueSteps.h"
#include "session/SessionRestorer.h"
#include "session/SessionSaver.h"
#include "session/SkipBurst.h"
#include "session/SleepTimer.h"
#include "session/SoundSettings.h"
#include "session/Timeline.h"
#include "session/UpNext.h"

namespace velorin {

/// Everything on the main thread.
struct PlayerState::Impl {
  Impl(AudioEngine& engine, Preferences& preferences, EventBus& bus, PlayerServices services,
       Options options);

  // --- What to play (PlayerState.cpp) ---
  void playTracks(TrackList tracks, std::size_t start, double seconds = 0);
  void playFiles(std::vector<std::filesystem::path> files, ServiceMode mode);
  void playAlone(const TrackInfo& track);
  void playFromTimeline(std::size_t index);
  void playFromHistory(std::size_t index);
  void playFromAutoplayQueue(const TrackInfo& track);

  // --- Starting and stepping (PlayerStateSteps.cpp) ---

  /// How a track was come to, which tells where to go on when it cannot be played.
  enum class Reach {
    chosen,    ///< this one and no other
    forward,   ///< on the way through the lists
    backward,  ///< on the way back
  };
  void togglePlayPause();
  void play();
  void pause();
  void stop();
  void seek(double position);
  /// The track plays from there although the one after it waits in the ring already: a plain seek
  /// would be one in that.
  void next();
  void previous();
  void skip(Reach direction);
  void settleBurst();
  /// Nothing plays, and nothing is about to.
  bool isIdle() const;
  void startWaiting();
  /// Asks the engine for what is shown.
  void start(Reach reach, double position = 0);
  /// Moves to the place and shows what is there.
  void go(QueuePlace place);
  void show(const TrackInfo& track);
  void goOnWithout(const EngineLink::Outcome& outcome);

  // --- The engine's news, and others' (PlayerStateEvents.cpp) ---
  void subscribe();
  void onTrackDidChange(const TrackDidChange& event);
  void takeOver(const Track& track);
  void followTrack();
  void onStateDidChange(PlaybackState reported);
  void onPlayNextTrack(const PlayNextTrack& event);
  void onFinished(const EngineLink::Outcome& outcome);
  void onUnavailable(const PlaybackFileUnavailable& event);
  void onTagsDidChange(const TrackTagsDidChange& event);
  /// Another state of an item, or nothing where it stays. On any thread.
  using ItemUpdate = std::function<std::optional<TrackInfo>(const TrackInfo&)>;
  /// Looks through the timeline in the background.
  void updateTimeline(ItemUpdate update);
  void onLibraryDidClear();
  void volumeMounted(const std::filesystem::path& mountPoint);
  void becomeStopped();
  void tick();
  void runProgress();
  void setWindowVisible(bool visible);

  // --- Queue and modes (PlayerStateQueue.cpp) ---
  void timelineEdited();
  void clearTimeline();
  void setShuffle(bool on);
  void setRepeatMode(RepeatMode mode);
  void setStopAfterCurrent(bool on);
  void toggleAutoplay();
  void setAutoplayQueue(std::vector<TrackInfo> tracks, bool append);
  void refill(bool forced);
  QueueView view() const;
  const TrackInfo& trackAt(QueuePlace place) const;
  enum class Refill { mayFollow, never };
  void updateNextTrack(Refill refilling = Refill::mayFollow);
  bool mayCrossfadeInto(QueuePlace place) const;
  /// Joins may follow other rules now.
  void settingChanged(bool changed);

  // --- Settings of the sound (PlayerStateSettings.cpp) ---
  SoundSettings::Services soundServices();
  /// What the profile of the device in use holds was changed: it is saved in a moment, once for all
  /// changes until then.
  void profileChanged();
  void saveProfile();
  /// A setting that the profile holds; joins may follow other rules now.
  void playbackSettingChanged(bool changed);
  void setVolume(double volume);
  void setVolumeMode(VolumeMode mode);
  void volumeChanged();
  void takeOver(const DeviceSettings& settings);
  void onHardwareVolume(double volume);
  /// Asks the device, on the engine's queue, whether it has a volume of its own and what it is.
  void lookAtHardwareVolume();
  void onMultiOutput();

  // --- History and session (PlayerStateSession.cpp) ---
  void addCurrentToHistory();
  void recordPlayback();
  /// The track was left: a step of the trail, unless the listener walks in it.
  void countTheLeft();
  void loadMoreHistory();
  SleepTimer::Services sleepServices();
  std::optional<SavedSession> session(SessionParts parts);
  void restore(RestoreOutcome outcome);

  void bookmarksStored(std::int64_t trackId, const std::vector<TrackBookmark>& list);

  void note(PlayerChanges changed);

  Preferences& preferences;
  EventBus& bus;
  const PlayerServices services;
  const Options options;

  // What is shown.
  std::optional<TrackInfo> currentTrack;
  PlaybackState state = PlaybackState::stopped;
  bool isLoading = false;
  double duration = 0;
  int sourceBitDepth = 0;
  double outputSampleRate = 0;
  std::optional<double> restoredPosition;
  bool stopAfterCurrent = false;
  RepeatMode repeatMode = RepeatMode::off;
  bool isWindowVisible = false;
  bool sessionRestored = false;

  bool isInHistory = false;        // this listen to the current track has its step of the trail
  Reach reach = Reach::chosen;     // of the current track
  std::size_t failuresInARow = 0;  // of tracks that could not be played
  bool isBurstAtTheEnd = false;    // the skips led beyond the last track
  double burstPosition = 0;        // where the track that a burst reaches begins
  std::uint64_t playWish = 0;      // numbers what is to play: files are read meanwhile
  std::uint64_t clears = 0;        // of the library
  bool isNews = false;             // the track has not been told of yet
  bool isRefilling = false;
  bool isSpectrumRunning = false;
  std::optional<double> hardwareVolume;  // of the device in use, as last heard of
  bool isProfileChanged = false;

  Timeline timeline;
  AutoplayQueue autoplay;
  HistoryTrail trail;
  UpNext upNext;
  PositionKeeper position;
  ListenCounter listens;
  SkipBurst burst;
  ChangeBroadcast changes;
  RepeatingTimer progress;
  Lifeline life;
  Bookmarks bookmarks;
  SessionStore sessionStore;
  SessionSaver saver;
  SessionRestorer restorer;
  HistoryStore history;
  ExternalFiles files;
  std::vector<EventBus::Subscription> subscriptions;
  EngineLink link;
  PlayerSettings settings;
  SoundSettings sound;
  ABComparison comparison;
  SleepTimer sleep;
};

}  // namespace velorin
