// The one controller of what plays.
//
// The interface, the menus, media keys, the command line and the browser remote all act on it, and
// it alone tells AudioEngine what to do. It is a face over parts that each own their fields: the
// timeline (what the listener asked for), the autoplay queue (what the system chose), the history
// and the walk through it, the count of what was heard, bursts of skips, bookmarks, the sleep
// timer, the settings of the sound, their comparison and the stored session.
//
// Threads: everything on the main thread, where nothing blocks: calls that can, into the engine and
// the database, go to queues of their own in the order in which they were made.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "records/Events.h"
#include "records/PlaybackTypes.h"
#include "records/TrackInfo.h"
#include "session/PlayerServices.h"
#include "session/PlayerTypes.h"
#include "session/TrackList.h"

namespace velorin {

class ABComparison;
class AudioEngine;
class EventBus;
class Preferences;
class SerialQueue;
class SoundSettings;
struct SignalPath;

class PlayerState {
 public:
  struct Options {
    bool restoresSession = true;  ///< reads the stored session at the start
    bool storesSession = true;    ///< writes it; both false for a player of one command
    bool countsListens = true;
    std::optional<std::uint64_t> shuffleSeed = {};  ///< the same seed shuffles the same way
    /// The clock that listens are counted by; empty: the machine's.
    std::function<std::chrono::system_clock::time_point()> now = {};
  };

  /// The first three outlive the player. Restores the session, in the background.
  PlayerState(AudioEngine& engine, Preferences& preferences, EventBus& bus, PlayerServices services,
              Options options);
  PlayerState(AudioEngine& engine, Preferences& preferences, EventBus& bus,
              PlayerServices services);
  /// Waits for the engine calls that are on their way. The engine goes on with what it does.
  ~PlayerState();
  PlayerState(const PlayerState&) = delete;
  PlayerState& operator=(const PlayerState&) = delete;

  // --- What to play ---

  /// Replaces the timeline and plays the track at the index, from that many seconds on. Nothing
  /// happens for an index outside.
  void playTracks(std::vector<TrackInfo> tracks, std::size_t startIndex, double position = 0);
  /// Files from outside the library; a sheet (".cue") stands for its tracks, and what yields
  /// nothing is dropped. The files are read in the background.
  void playFiles(std::vector<std::filesystem::path> files);
  void playFiles(std::vector<std::filesystem::path> files, ServiceMode mode);
  /// One track as the whole timeline, from the table of songs.
  void playAlone(const TrackInfo& track);
  void playFromTimeline(std::size_t index);
  void playFromHistory(std::size_t index);
  void playFromAutoplayQueue(const TrackInfo& track);

  // --- Transport ---

  void togglePlayPause();
  /// Plays when paused or when a restored track waits; pauses when playing. Else nothing.
  void play();
  void pause();
  void stop();
  void next();
  void previous();
  /// The same for keys, buttons and remote controls: several within 0.3 s start one track.
  void nextDebounced();
  void previousDebounced();
  /// Seconds from the start of the track.
  void seek(double position);

  // --- Modes ---

  void toggleShuffle();
  void setShuffle(bool on);
  void toggleRepeat();
  void setRepeatMode(RepeatMode mode);
  void toggleStopAfterCurrent();
  void toggleAutoplay();

  // --- The timeline. Only what follows the current item can be moved or removed. ---

  void appendToTimeline(std::vector<TrackInfo> tracks);
  void insertAfterCurrent(std::vector<TrackInfo> tracks);
  void removeFromTimeline(std::size_t index);
  void moveInTimeline(std::size_t from, std::size_t to);
  void moveUp(std::size_t index);
  void moveDown(std::size_t index);
  /// The playing track goes on.
  void clearTimeline();

  /// Copies of these lists are cheap at any length.
  const TrackList& timeline() const noexcept;
  int timelineIndex() const noexcept;  ///< -1 when nothing is selected
  /// The unshuffled timeline, while shuffle is on.
  const TrackList& originalTimeline() const noexcept;

  // --- History ---

  const std::vector<HistoryEntry>& history() const noexcept;  ///< oldest first, at most 500
  std::optional<std::size_t> historyNavigationIndex() const noexcept;
  bool historyFullyLoaded() const noexcept;
  bool isPaginatingHistory() const noexcept;
  /// Reads an older page from the database, in the background.
  void loadMoreHistory();

  // --- Autoplay and radio ---

  const std::vector<TrackInfo>& autoplayQueue() const noexcept;
  /// Replaces it, or with `append` adds to it; then the engine learns the next track.
  void setAutoplayQueue(std::vector<TrackInfo> tracks, bool append = false);
  bool autoplayEnabled() const noexcept;
  bool isPlayingAutoplay() const noexcept;
  std::optional<std::int64_t> radioSeedTrackId() const noexcept;
  void setRadioSeedTrackId(std::optional<std::int64_t> trackId);

  // --- What is going on ---

  const std::optional<TrackInfo>& currentTrack() const noexcept;
  PlaybackState state() const noexcept;
  bool isLoading() const noexcept;
  /// Seconds; as of the last tick. livePosition() asks the engine.
  double currentPosition() const noexcept;
  double livePosition() const;
  double duration() const noexcept;
  int sourceBitDepth() const noexcept;
  double outputSampleRate() const noexcept;
  /// What happens to the sound now, from the file to the device. Built anew at each call, which
  /// asks the device.
  SignalPath buildSignalPath();
  bool shuffleEnabled() const noexcept;
  RepeatMode repeatMode() const noexcept;
  bool stopAfterCurrent() const noexcept;
  /// Where the first play begins after a restart or the loss of a file.
  std::optional<double> restoredPosition() const noexcept;

  // --- Bookmarks of the current track, sorted by position, at most ten ---

  const std::vector<TrackBookmark>& currentBookmarks() const noexcept;
  void addBookmark(double position);
  void removeBookmark(const std::string& id);
  void updateBookmark(const std::string& id, std::optional<std::string> label,
                      std::optional<std::string> color);

  // --- Sleep timer ---

  void startSleepTimer(int seconds);
  void startSleepTimerEndOfTrack();
  void cancelSleepTimer();
  bool sleepTimerRuns() const noexcept;  ///< counting, or until the end of the track
  int sleepTimerSecondsRemaining() const noexcept;
  bool sleepTimerEndOfTrack() const noexcept;
  SleepTimerAction sleepTimerAction() const noexcept;
  void setSleepTimerAction(SleepTimerAction action);
  bool sleepTimerFadeEnabled() const noexcept;
  void setSleepTimerFadeEnabled(bool on);

  // --- Settings of the sound. Stored, for all devices and in the profile of the one in use, and
  // told to the engine on its queue. A value that is no change does nothing. ---

  /// The effects, the equalizer and the chain.
  SoundSettings& sound() noexcept;
  const SoundSettings& sound() const noexcept;
  /// Two settings of the effects side by side.
  ABComparison& comparison() noexcept;

  double volume() const noexcept;  ///< linear, 0 to 1
  /// With VolumeMode::hardware to the device; nothing with VolumeMode::fixed.
  void setVolume(double volume);
  VolumeMode volumeMode() const noexcept;
  /// VolumeMode::hardware only where the device has a control.
  void setVolumeMode(VolumeMode mode);
  bool hardwareVolumeAvailable() const noexcept;
  bool gaplessEnabled() const noexcept;
  void setGaplessEnabled(bool on);
  bool crossfadeEnabled() const noexcept;
  void setCrossfadeEnabled(bool on);
  double crossfadeDuration() const noexcept;
  void setCrossfadeDuration(double seconds);
  /// Neighbours of one album flow into each other although crossfading is on. Off by default.
  bool keepsAlbumsUncrossfaded() const noexcept;
  void setKeepsAlbumsUncrossfaded(bool on);
  bool exclusiveMode() const noexcept;
  void setExclusiveMode(bool on);
  bool integerMode() const noexcept;
  void setIntegerMode(bool on);
  bool memoryPlayback() const noexcept;
  void setMemoryPlayback(bool on);
  int memoryPlaybackLimitMB() const noexcept;
  void setMemoryPlaybackLimitMB(int mebibytes);  ///< below 1 becomes 256
  bool forceHighSampleRate() const noexcept;
  void setForceHighSampleRate(bool on);
  SampleRateStrategy sampleRateStrategy() const noexcept;
  void setSampleRateStrategy(SampleRateStrategy strategy);
  int resamplingMultiplier() const noexcept;
  void setResamplingMultiplier(int multiplier);  ///< held within 2 and 64
  double fixedSampleRate() const noexcept;
  void setFixedSampleRate(double rate);  ///< Hz; what is no rate becomes 0, for none
  bool lowLatencyMode() const noexcept;
  void setLowLatencyMode(bool on);

  // --- For the shell ---

  /// A window is seen: positions are then kept up to date four times a second, else every 2 s.
  void setWindowVisible(bool visible);
  /// A volume was mounted there: a track that waits for it is played.
  void volumeMounted(const std::filesystem::path& mountPoint);
  /// Writes the session now; returns when it is on disk.
  void saveSession();
  /// True once the stored session has been read, or there is none to read.
  bool sessionRestored() const noexcept;
  AudioEngine& engine() noexcept;
  /// "com.velorin.engine": for engine calls that must keep the order of the player's.
  SerialQueue& engineQueue() noexcept;

  /// Called on the main thread, once for all that changed in one turn of the main loop. Ends when
  /// the observation is destroyed.
  class Observation {
   public:
    Observation() = default;
    void reset() { _token.reset(); }

   private:
    friend class PlayerState;
    std::shared_ptr<void> _token;
  };
  [[nodiscard]] Observation observe(std::function<void(PlayerChanges)> changed);

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
