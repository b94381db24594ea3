// A sound server and ALSA as one: shared devices through the server, exclusive ones through ALSA.
#pragma once

#include <functional>
#include <memory>

#include "foundation/Mutex.h"
#include "foundation/SerialQueue.h"
#include "platform/audio/AudioHardware.h"
#include "platform/audio/CombinedDevices.h"
#include "platform/audio/ListenerList.h"

namespace velorin {

/// Lists the server's devices, and those of ALSA that the server does not show. A server device on
/// an ALSA device plays through the server until it is hogged; then rates, formats, buffers and
/// units are ALSA's, and it stays in the list while the server has let go of it. A hog that fails
/// changes nothing. Threads: as AudioHardware says; setHogOwner() may take some seconds.
class CombinedAudioHardware : public AudioHardware {
 public:
  /// The UID under which ALSA knows what a server device sits on ("alsa:hw:1,0"), empty for none.
  /// Called with devices of the server, from any thread.
  using AlsaUID = std::function<std::string(AudioDeviceID serverDevice)>;

  CombinedAudioHardware(std::unique_ptr<AudioHardware> server, std::unique_ptr<AudioHardware> alsa,
                        AlsaUID alsaUID);
  ~CombinedAudioHardware() override;

  std::string backendName() const override;
  std::vector<AudioDeviceID> devices() const override;
  /// The server's; ALSA's when the server has none.
  AudioDeviceID defaultOutputDevice() const override;
  /// UIDs of both sides: "alsa:hw:1,0" finds the entry it belongs to, "alsa:NAME" any PCM.
  AudioDeviceID deviceForUID(std::string_view uid) override;
  bool hasOutputStreams(AudioDeviceID device) const override;
  std::string deviceName(AudioDeviceID device) const override;
  std::string manufacturer(AudioDeviceID device) const override;
  std::string deviceUID(AudioDeviceID device) const override;
  TransportType transportType(AudioDeviceID device) const override;
  std::vector<RateRange> availableSampleRates(AudioDeviceID device) const override;
  double nominalSampleRate(AudioDeviceID device) const override;
  AudioStatus setNominalSampleRate(AudioDeviceID device, double rate) override;
  bool convertsSampleRates(AudioDeviceID device) const override;
  std::vector<PhysicalFormat> physicalFormats(AudioDeviceID device) const override;
  std::optional<PhysicalFormat> currentPhysicalFormat(AudioDeviceID device) const override;
  std::uint32_t outputChannels(AudioDeviceID device) const override;
  std::optional<std::uint32_t> bufferFrameSize(AudioDeviceID device) const override;
  std::optional<FrameRange> bufferFrameSizeRange(AudioDeviceID device) const override;
  AudioStatus setBufferFrameSize(AudioDeviceID device, std::uint32_t frames) override;
  std::uint32_t latency(AudioDeviceID device) const override;
  std::uint32_t safetyOffset(AudioDeviceID device) const override;
  pid_t hogOwner(AudioDeviceID device) const override;
  /// Giving back waits, up to 2 s, until the server shows the device again.
  AudioStatus setHogOwner(AudioDeviceID device, pid_t owner) override;
  bool hasVolume(AudioDeviceID device, std::uint32_t element) const override;
  std::optional<float> volume(AudioDeviceID device, std::uint32_t element) const override;
  AudioStatus setVolume(AudioDeviceID device, std::uint32_t element, float value) override;
  /// Of the server's devices.
  AudioStatus createAggregate(const AggregateDescription& description,
                              AudioDeviceID& created) override;
  AudioStatus destroyAggregate(AudioDeviceID device) override;
  /// A device's Listener must not outlive this object.
  Listener addListener(AudioProperty property, AudioDeviceID device, std::uint32_t element,
                       SerialQueue& queue, std::function<void()> changed) override;
  /// Bound to a side by its setDevice().
  std::unique_ptr<OutputUnit> createOutputUnit(AudioStatus& status) override;

 private:
  friend class CombinedOutputUnit;

  /// Who answers for a device now, and under which id. No hardware: the id is unknown.
  struct Route {
    AudioHardware* hardware = nullptr;
    AudioDeviceID id = kNoDevice;
  };
  Route route(AudioDeviceID device) const;
  AudioStatus takeHog(AudioDeviceID device, const CombinedDevices::Entry& entry, pid_t owner);
  AudioStatus giveBackHog(AudioDeviceID device, const CombinedDevices::Entry& entry);
  /// Asks both sides what they show, and tells listeners when that changed.
  void refresh();
  void noticeLostHogs() REQUIRES(_refreshing);
  /// The same as refresh(), soon, on the queue.
  void refreshLater();

  const std::unique_ptr<AudioHardware> _server;
  const std::unique_ptr<AudioHardware> _alsa;
  const AlsaUID _alsaUID;
  ListenerList _listeners;

  Mutex _refreshing;  ///< one refresh at a time; taken before _mutex
  mutable Mutex _mutex;
  ConditionVariable _refreshed;
  CombinedDevices _devices GUARDED_BY(_mutex);
  AudioDeviceID _default GUARDED_BY(_mutex) = kNoDevice;

  SerialQueue _queue{"com.velorin.audio.combined"};
  std::vector<Listener> _sides;  ///< last: no call to the queue once they are gone
};

}  // namespace velorin
