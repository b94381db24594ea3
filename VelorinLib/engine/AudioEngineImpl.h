// The engine's parts and how they are wired. Included by the AudioEngine*.cpp files only.
#pragma once

#include <atomic>
#include <memory>

#include "dsp/DSPEffects.h"
#include "engine/AudioEngine.h"
#include "engine/EngineSettings.h"
#include "engine/PlaybackSession.h"
#include "engine/devices/AggregateDeviceManager.h"
#include "engine/devices/DeviceFollower.h"
#include "engine/devices/DeviceProfiles.h"
#include "engine/devices/HardwareVolume.h"
#include "engine/devices/InterruptedPlayback.h"
#include "engine/devices/OutputDevices.h"
#include "engine/fill/FillThread.h"
#include "engine/joins/JoinDesk.h"
#include "engine/output/OutputSession.h"
#include "engine/render/RenderPath.h"
#include "engine/transport/NowPlaying.h"
#include "engine/transport/ProgressTimer.h"
#include "foundation/EventBus.h"
#include "foundation/Mutex.h"
#include "foundation/SerialQueue.h"
#include "platform/power/SleepInhibitor.h"

namespace velorin {

/// Order of locks: Owner's, lifecycleLock, then sessionLock or a part's own. The fill and render
/// threads take none of these.
struct AudioEngine::Impl {
  Impl(AudioHardware& hardware, Preferences& preferences, EventBus& bus);

  // --- Transport (AudioEngineTransport.cpp) ---
  void stop() REQUIRES(lifecycleLock);
  /// Lets go of the unit, the fill thread and the file, in this order.
  void releaseStream() REQUIRES(lifecycleLock);
  void pause() REQUIRES(lifecycleLock);
  void resume() REQUIRES(lifecycleLock);
  /// Goes back by frames that the device dropped unheard when it was paused.
  void takeBack(std::uint64_t clientFrames) REQUIRES(lifecycleLock);
  void seek(double time);
  double currentPosition() const;
  void stopAndAdvance(int generation) EXCLUDES(lifecycleLock);
  void changeState(PlaybackState state);
  void setRendering(bool rendering);

  // --- Starting a track (AudioEnginePlay.cpp) ---
  void play(const Track& track, std::optional<double> startTime) REQUIRES(lifecycleLock);
  void playPCM(const Track& track, std::optional<double> startTime) REQUIRES(lifecycleLock);
  enum class Started { playing, noFile, noOutput };
  Started startStream(const Track& track, double start, bool exclusively) REQUIRES(lifecycleLock);
  OpenedTrack openDecoder(const Track& track) REQUIRES(lifecycleLock);
  /// For a wait within play(): false as soon as the listener wants something else.
  VolumeRemount::IsWanted whileWanted() REQUIRES(lifecycleLock);
  void useSession(std::shared_ptr<PlaybackSession> made, std::unique_ptr<FileDecoder> decoder,
                  std::unique_ptr<ResampleStage> resampler, SourceFacts facts)
      REQUIRES(lifecycleLock);
  bool jumpWithinCueFile(const Track& track, std::optional<double> startTime)
      REQUIRES(lifecycleLock);
  void makeSession(const Track& track, OpenedTrack opened) REQUIRES(lifecycleLock);
  void startFilling(double start) REQUIRES(lifecycleLock);
  /// Waits until the ring holds a start.
  void prefill() REQUIRES(lifecycleLock);
  bool startAudioOutput(double start) REQUIRES(lifecycleLock);
  std::unique_ptr<RenderPath> makeRenderPath(PlaybackSession& playing) REQUIRES(lifecycleLock);
  /// The output runs: tells everybody of the track. `how` ends the line in the log.
  void announceStart(const SourceFacts& first, std::string_view how) REQUIRES(lifecycleLock);

  // --- One-bit audio (AudioEngineDSD.cpp) ---
  /// Changes the file without giving up the output unit. False: `play` is to start from scratch;
  /// where only the file or its rates were in the way, what plays was not touched.
  bool quickRestartDSD(const Track& track, std::optional<double> startTime) REQUIRES(lifecycleLock);
  bool restartOutput(const Track& track, OpenedTrack opened, const DSDRatePlan& plan, double start)
      REQUIRES(lifecycleLock);
  bool fallBackToFloat(double start) REQUIRES(lifecycleLock);

  // --- The next track (AudioEngineJoins.cpp) ---
  /// For tasks on the main thread that may come when the engine is gone. Taken before any other
  /// lock, and held while handlers of the events run that such a task posts.
  struct Owner {
    Mutex mutex;
    Impl* impl GUARDED_BY(mutex) = nullptr;
  };
  static void postTrackChange(const std::shared_ptr<Owner>& owner, const SharedFacts& joined,
                              int generation, std::chrono::milliseconds delay);
  void setNextTrack(std::optional<NextTrack::Wish> wish);
  void applyTrackChangeOnMain(const SharedFacts& joined, int generation);
  /// What a track that was joined and is heard changes here. False when it was overtaken.
  bool takeOver(const SourceFacts& joined);

  // --- Devices (AudioEngineDevices.cpp) ---
  void setExclusiveMode(bool on) REQUIRES(lifecycleLock);
  /// A device that does not start at once is tried for some seconds, from where the music was.
  void switchToDevice(AudioDeviceID device) REQUIRES(lifecycleLock);
  /// The device comes into use in the mode that its profile says: settings, effects, exclusive
  /// access, volume. Nothing plays meanwhile, and the device left is free.
  void useDevice(AudioDeviceID device) REQUIRES(lifecycleLock);
  /// A device with output streams is in use, in its mode; another one where the current one is
  /// gone. False when there is none.
  bool ensureDeviceInUse() REQUIRES(lifecycleLock);
  /// What plays on a device that took another one's place begins anew there in its mode.
  void moveToFallback() REQUIRES(lifecycleLock);
  /// What is set for playing now.
  DeviceSettings playbackSettings() const REQUIRES(lifecycleLock);
  void applyPlaybackSettings(const DeviceSettings& profile) REQUIRES(lifecycleLock);
  /// Into the profile of the device in use.
  void saveDeviceProfile() REQUIRES(lifecycleLock);
  void noteDeviceInUse() REQUIRES(lifecycleLock);
  void setVolumeMode(VolumeMode mode) REQUIRES(lifecycleLock);
  void hardwareVolumeChanged(AudioDeviceID device);
  void onOutputEvent(OutputEvent event, int generation);
  /// On the device listener queue: at most one line in ten seconds.
  void reportUnderrun();
  void handleFormatChanged(int generation) EXCLUDES(lifecycleLock);

  /// Stops what plays or is paused, and keeps its place.
  std::optional<Resumption> interrupt() REQUIRES(lifecycleLock);
  /// The same, or the place of what was interrupted and waits.
  std::optional<Resumption> interruptOrTake() REQUIRES(lifecycleLock);
  /// False when there is no output for it: the engine is stopped.
  bool goOn(const Resumption& where) REQUIRES(lifecycleLock);

  // --- Several devices at once (AudioEngineMultiOutput.cpp) ---
  void restoreMultiOutput();
  void enableMultiOutput(const std::vector<std::string>& uids) REQUIRES(lifecycleLock);
  void useAggregate(AudioDeviceID made, const std::vector<std::string>& uids)
      REQUIRES(lifecycleLock);
  /// To the device named, else to the first of those that played.
  void disableMultiOutput(std::optional<AudioDeviceID> next) REQUIRES(lifecycleLock);
  void forgetMultiOutput(AudioDeviceID next) REQUIRES(lifecycleLock);
  AudioDeviceID defaultOrFirst() const;
  /// An aggregate of pairs gets the stereo signal on each of them: RenderPath copies it.
  StreamFormat formatForDevice(const StreamFormat& clientFormat) REQUIRES(lifecycleLock);

  // --- Devices come and go (AudioEngineDeviceChanges.cpp) ---
  /// Once, at the end of construction.
  void startDevices();
  void listenToDevices();
  void selectOutputDevice(AudioDeviceID device) REQUIRES(lifecycleLock);
  void followSystemDefault() REQUIRES(lifecycleLock);
  /// Ends it in favour of a device, also where it is only about to be brought back.
  void endMultiOutputFor(AudioDeviceID next) REQUIRES(lifecycleLock);
  /// Asks for devicesChanged(), once for all that changes until it runs. Any thread.
  void noteDevicesChanged();
  /// On the device listener queue, like the two below.
  void devicesChanged() EXCLUDES(lifecycleLock);
  /// The system's rules for what is there now; what plays goes along.
  void applyDeviceRules() REQUIRES(lifecycleLock);
  /// The stream is dead, though its device may be there.
  void handleDeviceLost(int generation) EXCLUDES(lifecycleLock);
  void leaveLostDevice(const DeviceDecision& decision) REQUIRES(lifecycleLock);
  void postAutoSwitch(AudioDeviceID from, std::optional<std::string> fromName)
      REQUIRES(lifecycleLock);
  /// Goes on, or keeps the place and tries again for some seconds.
  void recover(const Resumption& where) REQUIRES(lifecycleLock);
  void waitForDevice(Resumption where) REQUIRES(lifecycleLock);
  void scheduleRetry(int ticket);
  void retryInterrupted(int ticket) EXCLUDES(lifecycleLock);

  PlaybackFacts facts() EXCLUDES(lifecycleLock);
  /// Reads back what the output does, for facts().
  void refreshReport() REQUIRES(lifecycleLock);

  std::shared_ptr<PlaybackSession> currentSession() const EXCLUDES(sessionLock) {
    MutexLock hold(sessionLock);
    return session;
  }
  /// What is heard; null while nothing is open.
  SharedFacts heardSource() const;
  void setSession(std::shared_ptr<PlaybackSession> next) EXCLUDES(sessionLock);

  // Constant after construction, or synchronise themselves.
  AudioHardware& hardware;
  Preferences& preferences;
  EventBus& bus;
  const std::shared_ptr<RenderControls> controls = std::make_shared<RenderControls>();
  const std::shared_ptr<DSPEffects> effects;
  SpectrumCaptureRing spectrumCaptureRing{4096};
  NowPlaying nowPlaying;
  const std::shared_ptr<JoinDesk> joins = std::make_shared<JoinDesk>();
  const std::shared_ptr<Owner> owner = std::make_shared<Owner>();
  ProgressTimer progressTimer;
  OutputDevices devices;
  DeviceFollower follower;
  AggregateDeviceManager aggregates;
  std::atomic<bool> deviceChangeIsNoted{false};
  SleepInhibitor sleepInhibitor;
  std::atomic<int> playGeneration{0};
  /// Calls of stop() so far, also of those that wait for the lifecycle lock.
  std::atomic<int> stopsWanted{0};
  /// `playGeneration` of the stream that the output unit serves.
  std::atomic<int> outputGeneration{0};
  /// The session that the running unit renders; null without one. For canRender().
  std::atomic<PlaybackSession*> renderingSession{nullptr};

  RecursiveMutex lifecycleLock;
  EngineSettings settings GUARDED_BY(lifecycleLock);
  std::function<bool()> isStillWanted GUARDED_BY(lifecycleLock);
  OutputSession output GUARDED_BY(lifecycleLock);
  FillThread fillThread GUARDED_BY(lifecycleLock);
  DeviceProfiles profiles GUARDED_BY(lifecycleLock);
  InterruptedPlayback interrupted GUARDED_BY(lifecycleLock);
  /// The device that is used, or was last: a lost one can no longer be asked.
  struct DeviceInUse {
    AudioDeviceID id = kNoDevice;
    std::string name;
  };
  DeviceInUse inUse GUARDED_BY(lifecycleLock);
  /// The last playPCM() found a file and no output.
  bool outputFailed GUARDED_BY(lifecycleLock) = false;
  /// The program or the engine ends: devices are left alone.
  bool isClosing GUARDED_BY(lifecycleLock) = false;

  mutable Mutex sessionLock;
  std::shared_ptr<PlaybackSession> session GUARDED_BY(sessionLock);

  mutable Mutex reportLock;
  OutputReport lastReport GUARDED_BY(reportLock);
  bool lastRateVerified GUARDED_BY(reportLock) = false;

  // Of the device listener queue alone.
  int underruns = 0;
  std::chrono::steady_clock::time_point nextUnderrunReport{};

  // Last: their tasks use everything above, so they are joined first.
  SerialQueue advanceQueue{"com.velorin.engine.advance"};
  SerialQueue deviceListenerQueue{"com.velorin.audio.devices"};

  // Ended before the queue that they use.
  VolumeListener volumeListener{hardware, deviceListenerQueue,
                                [this](AudioDeviceID device) { hardwareVolumeChanged(device); }};
  AudioHardware::Listener devicesListener;
  AudioHardware::Listener defaultOutputListener;
};

}  // namespace velorin
