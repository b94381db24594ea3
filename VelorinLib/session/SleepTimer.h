// Ends the music after a time, or with the track: fades, pauses, and may put the machine to sleep.
//
//   idle --start(seconds)--> counting --last 30 s--> fading --> the action --> idle
//   idle --startEndOfTrack()--> until the end of the track --trackEnded()--> the action --> idle
//
// Whatever ends it, the volume from before the fade comes back; after the action only once the
// music is silent.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "foundation/MainThread.h"
#include "records/PlaybackTypes.h"
#include "session/PlayerTypes.h"

namespace velorin {

class Preferences;

/// Main thread.
class SleepTimer {
 public:
  using Clock = std::chrono::steady_clock;

  /// How it reaches the sound, the machine and those who watch. All are called on the main thread;
  /// those marked so may be empty.
  struct Services {
    std::function<bool()> isIntegerMode;
    std::function<VolumeMode()> volumeMode;
    /// The software volume, 0 to 1. Setting it should not change what is stored: a fade that a
    /// crash cuts off must not leave the player silent.
    std::function<double()> volume;
    std::function<void(double)> setVolume;
    /// The device's own volume, 0 to 1; empty, or an empty function, where it has no control.
    std::function<std::optional<float>()> deviceVolume;
    std::function<bool(float)> setDeviceVolume;  ///< false when the device refuses; may be empty

    /// The player is to tell the engine its next track anew.
    std::function<void()> updateNextTrack;
    /// Pauses the engine if it plays, or stops it, on the engine's queue, then calls `done` on the
    /// main thread.
    std::function<void(std::function<void()> done)> pause;
    std::function<void(std::function<void()> done)> stop;
    /// Once the music is silent. They wait the moment that the sound needs by themselves.
    std::function<void()> suspendMachine;   ///< may be empty
    std::function<void()> powerOffMachine;  ///< may be empty

    std::function<void()> changed;           ///< what is shown of the timer; may be empty
    std::function<Clock::time_point()> now;  ///< may be empty: the clock
  };

  static constexpr int kFadeDuration = 30;  ///< seconds

  /// The preferences outlive it; action and fade are read from them.
  SleepTimer(Preferences& preferences, Services services);

  /// Anew; below 1 s it ends with the first tick.
  void start(int seconds);
  void startEndOfTrack();
  void cancel();

  /// A track has played out. True when the timer waited for that: it has then run its action, and
  /// nothing is to follow.
  bool trackEnded();

  bool isCounting() const noexcept { return _end.has_value(); }
  bool endOfTrack() const noexcept { return _endOfTrack; }
  int secondsRemaining() const noexcept { return _secondsRemaining; }

  SleepTimerAction action() const noexcept { return _action; }
  void setAction(SleepTimerAction action);  ///< stored in "sleepTimerAction"
  bool fadeEnabled() const noexcept { return _fadeEnabled; }
  void setFadeEnabled(bool on);  ///< stored in "sleepTimerFadeEnabled"

  /// One second has passed. Called by the timer itself.
  void tick();

 private:
  /// Volumes from before the fade.
  struct Before {
    std::optional<double> software;
    std::optional<float> device;
  };

  void stopCounting();
  void fade(double gain);
  bool fadeDevice(float gain, Before& before);
  void fadeSoftware(double gain, Before& before);
  void restore(const Before& before);
  void finish();
  void runAction(Before before);
  void tellChanged();
  Clock::time_point now() const;

  Preferences& _preferences;
  const Services _services;
  RepeatingTimer _timer;
  std::optional<Clock::time_point> _end;
  int _secondsRemaining = 0;
  SleepTimerAction _action = SleepTimerAction::pause;
  bool _fadeEnabled = true;
  bool _endOfTrack = false;
  Before _before;
  std::shared_ptr<bool> _alive = std::make_shared<bool>(true);
};

}  // namespace velorin
