// The volume control of a sound card.
#pragma once

#include <alsa/asoundlib.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "foundation/Mutex.h"
#include "platform/audio/AudioTypes.h"
#include "platform/audio/alsa/WakeSignal.h"

namespace velorin {

/// Any thread but the render thread. A card that goes away leaves a mixer without volumes.
///
/// The scalar runs from 0, the least the control can do, to 1. Where the control knows decibels,
/// half of it is about 18 dB down, as with other volume controls of the desktop: the cube root of
/// the amplitude, stretched to the control's range (as alsamixer draws it); a range of up to 24 dB
/// is spread evenly.
class AlsaMixer {
 public:
  /// The first playback volume of the card that is what a listener turns: "Master", "PCM" …; null
  /// when it has none or the control device ("hw:0") does not open.
  static std::unique_ptr<AlsaMixer> open(const std::string& control);
  ~AlsaMixer();
  AlsaMixer(const AlsaMixer&) = delete;
  AlsaMixer& operator=(const AlsaMixer&) = delete;

  /// Element 0 is the louder of both channels, 1 and 2 are left and right.
  std::optional<float> volume(std::uint32_t element);
  /// value: 0 to 1, taken as near as the control goes. Setting element 0 keeps the balance.
  AudioStatus setVolume(std::uint32_t element, float value);

  /// Calls `changed` on a thread of the mixer after somebody else has set the volume. Once.
  void listen(std::function<void()> changed);
  bool isListening() const { return _thread.joinable(); }

 private:
  struct Levels {
    long left = 0;
    long right = 0;
    bool operator==(const Levels&) const = default;
  };

  explicit AlsaMixer(snd_mixer_t* mixer) : _mixer(mixer) {}
  bool findControl() REQUIRES(_mutex);
  /// Takes in what has happened; nothing once the card is gone.
  std::optional<Levels> read() REQUIRES(_mutex);
  float scalarOf(long raw) const REQUIRES(_mutex);
  long rawOf(float scalar) const REQUIRES(_mutex);
  void run(const std::function<void()>& changed);

  Mutex _mutex;
  snd_mixer_t* const _mixer;  ///< used under the mutex, but for its descriptors
  snd_mixer_elem_t* _control GUARDED_BY(_mutex) = nullptr;
  bool _isGone GUARDED_BY(_mutex) = false;
  Levels _known GUARDED_BY(_mutex);       ///< as told or set last
  float _balance GUARDED_BY(_mutex) = 1;  ///< right by left, in scalars, before both were 0
  WakeSignal _ending;
  std::thread _thread;
};

}  // namespace velorin
