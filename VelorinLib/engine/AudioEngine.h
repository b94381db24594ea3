// Turns a Track into sound: the face over the parts of the playback engine.
//
// The engine owns the open decoder, the ring, the fill thread, the output unit and the effect
// chain. It knows nothing of queues or playlists: a controller tells it what to play, and it
// answers with the events of records/Events.h, all posted on the main thread.
//
// Threads: transport and settings are called on one serial queue of the controller, labelled
// "com.velorin.engine" (or on the main thread by media keys); the lifecycle lock inside keeps
// them apart. What says "any thread" may be called from anywhere but the render thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/PlaybackFacts.h"
#include "engine/devices/AudioDevice.h"
#include "engine/devices/DACCapabilities.h"
#include "records/PlaybackTypes.h"
#include "records/Track.h"

namespace velorin {

class AudioHardware;
class EventBus;
class Preferences;
class DSPEffects;
struct DSPChainEntry;
class SpectrumCaptureRing;

class AudioEngine {
 public:
  /// All three must outlive the engine. Reads its start-up values from the preferences and picks
  /// the device: the saved one, else the system default.
  AudioEngine(AudioHardware& hardware, Preferences& preferences, EventBus& bus);

  /// Stops. Not from a handler of one of its own events.
  ~AudioEngine();
  AudioEngine(const AudioEngine&) = delete;
  AudioEngine& operator=(const AudioEngine&) = delete;

  // --- Transport (engine queue). Times are seconds in the track. ---

  /// Starts the track at the time, or at its start (for a CUE track at its cueStartTime). Blocks
  /// until the sound started or could not: then the engine is stopped and has said why in the log
  /// and, for a file that cannot be opened, with PlaybackFileUnavailable.
  void play(const Track& track, std::optional<double> startTime = std::nullopt);
  /// Releases everything. Never blocks on a slow file.
  void stop();
  /// For the end of the program: gives up exclusive mode for good and stops, so that the device is
  /// free for others.
  void shutDown();
  void pause();
  void resume();
  /// From stopped: plays lastTrack() again. From playing: pauses. From paused: resumes.
  void togglePlayPause();
  /// Asked on the engine queue while play() waits for a volume to come back; false ends the wait.
  /// A stop() on another thread ends it in any case. Set once, before the first play().
  void setPatience(std::function<bool()> isStillWanted);
  /// A time in the track that is heard, also while the next one waits behind it; one past the end
  /// goes to the end. Returns at once; the fill thread does the rest. Ignored while no file is
  /// open.
  void seek(double time);

  // --- What is going on (any thread) ---

  PlaybackState state() const;
  /// Seconds into the track as the listener hears it: what the device still holds is not counted.
  double currentPosition() const;
  /// Seconds of the playing track or of its CUE range; 0 when the file does not tell.
  double duration() const;
  std::optional<Track> currentTrack() const;
  /// The track before the last stop.
  std::optional<Track> lastTrack() const;
  int sourceBitDepth() const;
  StreamFormat fileFormat() const;
  StreamFormat clientFormat() const;
  std::optional<DecoderInfo> decoderInfo() const;
  bool isIntegerOutput() const;
  /// One-bit audio is heard; it always reaches the device as PCM.
  bool isDSDPlayback() const;
  bool isDSDtoPCM() const { return isDSDPlayback(); }
  /// Its PCM has a lower rate than the device offers, whose buffer would be too short there.
  bool dsdRateDowngraded() const;
  PlaybackFacts facts() const;
  /// Incremented by every stop().
  int playGeneration() const;

  // --- The next track ---

  /// What comes after the track that plays, prepared at once and joined to it without a gap; empty
  /// for nothing, so that the end is told by PlayNextTrack. May be called again at any time: a
  /// track that was joined already but is not heard yet gives way to the new one. Each
  /// TrackDidChange with a join has taken it, so that it is set anew after that. `mayCrossfade`
  /// false: joined without a crossfade, whatever the setting. Main thread; never blocks.
  void setNextTrack(std::optional<Track> next, bool mayCrossfade = true);
  std::optional<Track> nextTrack() const;
  /// From the moment on that the next track is decoded until all handlers of its TrackDidChange
  /// have run. Any thread.
  bool gaplessTransitionPending() const noexcept;
  /// Frames to be rendered until the track that was joined is heard: 0 when it is and its
  /// TrackDidChange is on the way, -1 when none waits. Any thread.
  std::int64_t gaplessCountdown() const noexcept;
  /// A join waits to be heard. Any thread.
  bool joinCountdownRuns() const noexcept { return gaplessCountdown() > 0; }

  /// For a device without a clock of its own: true when the next `frames` frames can be rendered
  /// without a gap, or when the stream has ended; while false the fill thread is hurried on. A
  /// track that was joined and is shorter than a buffer cannot be followed by another before it is
  /// heard: such a device best asks for no more than gaplessCountdown() frames while that is above
  /// 0, and for none while it is 0. For the running device's own thread (what it looks at lives
  /// until the device has stopped), or the engine queue; not for a real-time thread.
  bool canRender(std::uint32_t frames) const;

  // --- Settings (engine queue). Those of format and rate take effect at the next play(). ---

  float volume() const;
  void setVolume(float linear);  ///< software gain, 0 to 1; NaN is ignored
  VolumeMode volumeMode() const;
  void setVolumeMode(VolumeMode mode);
  bool integerMode() const;
  void setIntegerMode(bool on);
  /// Joins follow these from the next one on.
  bool gaplessEnabled() const noexcept;
  void setGaplessEnabled(bool on);
  bool crossfadePlaybackEnabled() const noexcept;
  void setCrossfadePlaybackEnabled(bool on);
  double crossfadeDuration() const noexcept;
  void setCrossfadeDuration(double seconds);  ///< 0 or less, or not a number, becomes 3
  bool exclusiveMode() const;
  /// Takes or gives back exclusive access at once.
  void setExclusiveMode(bool on);
  SampleRateStrategy sampleRateStrategy() const;
  void setSampleRateStrategy(SampleRateStrategy strategy);
  int resamplingMultiplier() const;
  void setResamplingMultiplier(int multiplier);  ///< below 2 becomes 2
  double fixedSampleRate() const;
  void setFixedSampleRate(double rate);  ///< Hz
  bool forceHighSampleRate() const;
  void setForceHighSampleRate(bool on);
  bool lowLatencyMode() const;
  /// Real-time scheduling of the fill thread; takes effect at once.
  void setLowLatencyMode(bool on);
  /// Tracks are read into RAM before they play, up to the limit; from the next one on.
  bool memoryPlayback() const noexcept;
  void setMemoryPlayback(bool on) noexcept;
  int memoryPlaybackLimitMB() const noexcept;
  void setMemoryPlaybackLimitMB(int mebibytes) noexcept;  ///< below 1 becomes 256

  // --- Devices ---

  // Any thread.
  std::vector<AudioDevice> enumerateOutputDevices() const;
  AudioDeviceID currentDevice() const;
  bool holdsDeviceExclusively() const;
  std::optional<DACCapabilities> deviceCapabilities(AudioDeviceID device) const;
  bool followsSystemDefaultOutput() const noexcept;
  /// UIDs of the devices that play at once; empty without multi-output.
  std::vector<std::string> multiOutputDeviceUIDs() const;

  // Engine queue. What plays goes on at the same position, with the settings of the device that
  // comes into use; what was paused stays paused.
  /// The listener's choice, remembered; ends following and multi-output.
  void selectOutputDevice(AudioDeviceID device);
  void followSystemDefault();
  /// Two devices or more, the first of which sets the clock. Exclusive and integer mode end.
  void enableMultiOutput(const std::vector<std::string>& uids);
  void disableMultiOutput();

  /// Writes what is set now into the profile of the device in use: between two switches a setting
  /// that belongs to a device was changed. Nothing without a device, and after shutDown(). Engine
  /// queue.
  void saveDeviceProfile();

  // The device's own volume, 0 to 1. Any thread.
  std::optional<float> hardwareVolume(AudioDeviceID device) const;
  bool setHardwareVolume(AudioDeviceID device, float volume);

  // --- Parts that others use ---

  /// The effects and their chain. Their parameters may be set on any thread but the render thread,
  /// one caller at a time.
  DSPEffects& effects();
  /// Order and switches of the effects, from the next render call on. Any thread.
  void applyDSPChainConfig(const std::vector<DSPChainEntry>& entries);
  SpectrumCaptureRing& spectrumCaptureRing();
  void setSpectrumCaptureEnabled(bool on);

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
