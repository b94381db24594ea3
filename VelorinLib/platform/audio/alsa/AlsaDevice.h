// One ALSA playback device: what it can do, what was wished for it, and who has it exclusively.
//
// Any thread but the render thread.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>

#include "foundation/Mutex.h"
#include "platform/audio/AudioHardware.h"
#include "platform/audio/alsa/AlsaCards.h"
#include "platform/audio/alsa/AlsaMixer.h"
#include "platform/audio/alsa/AlsaPcm.h"
#include "platform/audio/alsa/DeviceReservation.h"

namespace velorin {

class AlsaStream;

class AlsaDevice {
 public:
  AlsaDevice(AudioDeviceID id, AlsaPcmAddress address);
  ~AlsaDevice();
  AlsaDevice(const AlsaDevice&) = delete;
  AlsaDevice& operator=(const AlsaDevice&) = delete;

  AudioDeviceID id() const noexcept { return _id; }
  AlsaPcmAddress address() const;
  /// The same card may come back under another number, and with other firmware: what was learned
  /// of it is asked anew.
  void setAddress(AlsaPcmAddress address);

  /// Asked of the device once and remembered. While another program holds a device that was never
  /// asked: its error (-EBUSY), and `result` stays empty.
  AudioStatus capabilities(AlsaCapabilities& result);

  /// Opens the PCM. A hogged device is tried for up to a second, since whoever agreed to let go of
  /// it may still be closing. The text of -EBUSY names the holder.
  std::unique_ptr<AlsaPcm> open(AudioStatus& status);

  /// Hz of the running stream, else of the next one.
  double nominalRate();
  /// -EINVAL for a rate the device does not have. `changed` tells whether to notify.
  AudioStatus setNominalRate(double rate, bool& changed);

  /// Frames of one callback: 1 period. The range does not depend on the rate; what is granted does,
  /// so that a period never exceeds about 90 ms (see periodLimit).
  FrameRange periodRange();
  std::uint32_t periodFrames();
  AudioStatus setPeriodFrames(std::uint32_t frames);
  /// What a stream at that rate is set up with.
  std::uint32_t periodFramesAt(double rate);
  static std::uint32_t bufferFramesFor(std::uint32_t period, double rate) noexcept;
  /// Frames that are queued before a period that is being rendered, beyond that period itself.
  std::uint32_t latencyFrames();

  /// Opened when first asked for; null when the device has no volume.
  std::shared_ptr<AlsaMixer> mixer();
  /// Calls `changed` from now on when somebody else has set the volume, until the device's address
  /// changes. A second call is ignored.
  void listenToVolume(std::function<void()> changed);

  /// -1 when nobody holds it exclusively.
  pid_t hogOwner() const;
  AudioStatus setHogOwner(pid_t owner);

  /// What the running stream was granted.
  std::optional<AlsaGrant> grant() const;

  /// The stream that plays on the device, for interrupting it when the card must be given up, and
  /// what it was granted. An expired pointer ends that.
  void setStream(std::weak_ptr<AlsaStream> stream, std::optional<AlsaGrant> grant);

 private:
  bool hasHog() const REQUIRES(_mutex);
  AudioStatus takeHog();
  void giveBackHog();
  void interruptStream();
  std::string holderText();

  const AudioDeviceID _id;
  mutable Mutex _mutex;
  AlsaPcmAddress _address GUARDED_BY(_mutex);
  std::optional<AlsaCapabilities> _capabilities GUARDED_BY(_mutex);
  double _wishedRate GUARDED_BY(_mutex) = 0;
  std::uint32_t _wishedPeriod GUARDED_BY(_mutex);
  std::optional<AlsaGrant> _grant GUARDED_BY(_mutex);
  std::weak_ptr<AlsaStream> _stream GUARDED_BY(_mutex);
  bool _knowsMixer GUARDED_BY(_mutex) = false;
  std::shared_ptr<AlsaMixer> _mixer GUARDED_BY(_mutex);
  bool _isHogged GUARDED_BY(_mutex) = false;
  std::unique_ptr<DeviceReservation> _reservation GUARDED_BY(_mutex);
};

/// The longest period at a rate: 4096 frames up to 48 kHz, doubled with each doubling of the rate
/// (about 85 ms). Longer ones would delay pause, seek and volume without making anything safer.
std::uint32_t periodLimit(double rate) noexcept;

}  // namespace velorin
