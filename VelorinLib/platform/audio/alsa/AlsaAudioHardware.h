// The ALSA backend: every card's own PCMs, and any configured PCM by name.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "foundation/Mutex.h"
#include "platform/audio/AudioHardware.h"
#include "platform/audio/ListenerList.h"
#include "platform/audio/alsa/AlsaDevice.h"
#include "platform/audio/alsa/DeviceNodeWatcher.h"

namespace velorin {

/// Devices have the UID "alsa:NAME". Listed are the cards' PCMs ("alsa:hw:PCH,0", by card id) and
/// those that were asked for by name through deviceForUID(); ALSA's "default" is the default device
/// where it can be opened, else the first one is.
///
/// Rates, formats and channels are those of the device itself, resampling off; the volume is that
/// of the card's mixer. There is no aggregate here. Threads: as AudioHardware says.
class AlsaAudioHardware : public AudioHardware {
 public:
  /// Where cards come from and which folder tells that they changed (tests set both), and whether
  /// ALSA's "default" is a device here: not beside a sound server, which it usually leads to.
  struct System {
    std::function<std::vector<AlsaPcmAddress>()> hardware = &alsaHardware;
    std::string nodeFolder = "/dev/snd";
    bool offersDefault = true;
  };
  AlsaAudioHardware();
  explicit AlsaAudioHardware(System system);
  ~AlsaAudioHardware() override;

  std::string backendName() const override;
  std::vector<AudioDeviceID> devices() const override;
  AudioDeviceID defaultOutputDevice() const override;
  /// Also "alsa:hw:0,0" and "alsa:hw:CARD=PCH,DEV=0". A name that is not known is opened once; one
  /// that cannot be opened is logged and gives kNoDevice, unless only another program holds it.
  AudioDeviceID deviceForUID(std::string_view uid) override;
  bool hasOutputStreams(AudioDeviceID device) const override;
  std::string deviceName(AudioDeviceID device) const override;
  std::string manufacturer(AudioDeviceID device) const override;
  std::string deviceUID(AudioDeviceID device) const override;
  TransportType transportType(AudioDeviceID device) const override;
  std::vector<RateRange> availableSampleRates(AudioDeviceID device) const override;
  double nominalSampleRate(AudioDeviceID device) const override;
  AudioStatus setNominalSampleRate(AudioDeviceID device, double rate) override;
  /// False: a stream plays at its own rate or not at all.
  bool convertsSampleRates(AudioDeviceID) const override { return false; }
  std::vector<PhysicalFormat> physicalFormats(AudioDeviceID device) const override;
  std::optional<PhysicalFormat> currentPhysicalFormat(AudioDeviceID device) const override;
  std::uint32_t outputChannels(AudioDeviceID device) const override;
  std::optional<std::uint32_t> bufferFrameSize(AudioDeviceID device) const override;
  std::optional<FrameRange> bufferFrameSizeRange(AudioDeviceID device) const override;
  AudioStatus setBufferFrameSize(AudioDeviceID device, std::uint32_t frames) override;
  std::uint32_t latency(AudioDeviceID device) const override;
  std::uint32_t safetyOffset(AudioDeviceID device) const override;
  pid_t hogOwner(AudioDeviceID device) const override;
  AudioStatus setHogOwner(AudioDeviceID device, pid_t owner) override;
  bool hasVolume(AudioDeviceID device, std::uint32_t element) const override;
  std::optional<float> volume(AudioDeviceID device, std::uint32_t element) const override;
  AudioStatus setVolume(AudioDeviceID device, std::uint32_t element, float value) override;
  AudioStatus createAggregate(const AggregateDescription& description,
                              AudioDeviceID& created) override;
  AudioStatus destroyAggregate(AudioDeviceID device) override;
  Listener addListener(AudioProperty property, AudioDeviceID device, std::uint32_t element,
                       SerialQueue& queue, std::function<void()> changed) override;
  std::unique_ptr<OutputUnit> createOutputUnit(AudioStatus& status) override;

 private:
  struct Entry {
    std::shared_ptr<AlsaDevice> device;
    std::string uid;
    bool isPresent = true;  ///< an absent one keeps its id for when it comes back
  };
  std::shared_ptr<AlsaDevice> find(AudioDeviceID device) const;
  const Entry* findByAddress(std::string_view pcm) const REQUIRES(_mutex);
  AudioDeviceID openByName(const std::string& pcm);
  void rescan();

  System _system;
  ListenerList _listeners;
  Mutex _scanning;  ///< one rescan() at a time; taken before _mutex
  mutable Mutex _mutex;
  std::vector<Entry> _entries GUARDED_BY(_mutex);  ///< index + 1 is the id
  AudioDeviceID _default GUARDED_BY(_mutex) = kNoDevice;
  DeviceNodeWatcher _watcher;  ///< last: it calls rescan()
};

}  // namespace velorin
