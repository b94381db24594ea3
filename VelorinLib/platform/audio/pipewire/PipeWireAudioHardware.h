// The sinks of a PipeWire server as audio devices, shared with other programs.
//
// A device is a sink; its UID is the sink's node.name. The server is watched: when it ends, the
// devices go and the units on them are lost; when it comes back, so do they, with their old ids.
#pragma once

#include <memory>

#include "platform/audio/AudioHardware.h"

namespace velorin {

class PipeWireSystem;
class PipeWireAggregates;

/// The PCM of ALSA that a sink plays on.
struct AlsaAddress {
  int card = 0;
  int device = 0;
  std::string path;  ///< as the server opens it, e.g. "hw:1", "front:0"; may be empty
  bool operator==(const AlsaAddress&) const = default;
};

class PipeWireAudioHardware : public AudioHardware {
 public:
  /// Null with a status when no server answers; bounded to about a second.
  static std::unique_ptr<PipeWireAudioHardware> create(AudioStatus& status);
  ~PipeWireAudioHardware() override;

  /// Where the device sits in ALSA, nullopt when it does not.
  std::optional<AlsaAddress> alsaAddress(AudioDeviceID device) const;

  std::string backendName() const override;
  std::vector<AudioDeviceID> devices() const override;
  AudioDeviceID defaultOutputDevice() const override;
  AudioDeviceID deviceForUID(std::string_view uid) override;
  bool hasOutputStreams(AudioDeviceID device) const override;
  std::string deviceName(AudioDeviceID device) const override;
  std::string manufacturer(AudioDeviceID device) const override;
  std::string deviceUID(AudioDeviceID device) const override;
  TransportType transportType(AudioDeviceID device) const override;

  /// The common rates that the sink takes, whatever the server's list of allowed rates: units
  /// force theirs.
  std::vector<RateRange> availableSampleRates(AudioDeviceID device) const override;
  /// The rate of the sink while a unit plays on it, else the one that was set, else the server's.
  double nominalSampleRate(AudioDeviceID device) const override;
  /// Taken up by the next unit that is initialized on the device; nothing else is disturbed.
  AudioStatus setNominalSampleRate(AudioDeviceID device, double rate) override;
  bool convertsSampleRates(AudioDeviceID) const override { return true; }

  std::vector<PhysicalFormat> physicalFormats(AudioDeviceID device) const override;
  std::optional<PhysicalFormat> currentPhysicalFormat(AudioDeviceID device) const override;
  std::uint32_t outputChannels(AudioDeviceID device) const override;

  /// The quantum while a unit plays, else the one that the server is expected to choose.
  std::optional<std::uint32_t> bufferFrameSize(AudioDeviceID device) const override;
  std::optional<FrameRange> bufferFrameSizeRange(AudioDeviceID device) const override;
  /// A wish: the server keeps the quantum within its own limits and small enough for everybody.
  AudioStatus setBufferFrameSize(AudioDeviceID device, std::uint32_t frames) override;
  std::uint32_t latency(AudioDeviceID device) const override;
  std::uint32_t safetyOffset(AudioDeviceID device) const override;

  pid_t hogOwner(AudioDeviceID device) const override;
  /// Makes the next unit on the device an exclusive one: while it is initialized, the session
  /// manager lets no other program's stream onto the sink. -EBUSY when another program plays.
  AudioStatus setHogOwner(AudioDeviceID device, pid_t owner) override;

  /// The scalar is the cube root of the server's linear factor, as desktops show it. Element 0 is
  /// the loudest channel; setting it keeps the balance, also by way of 0. A sink that is muted
  /// keeps its volume and stays muted.
  bool hasVolume(AudioDeviceID device, std::uint32_t element) const override;
  std::optional<float> volume(AudioDeviceID device, std::uint32_t element) const override;
  AudioStatus setVolume(AudioDeviceID device, std::uint32_t element, float value) override;

  /// A combining sink in this process, which plays the same channels on every device.
  AudioStatus createAggregate(const AggregateDescription& description,
                              AudioDeviceID& created) override;
  AudioStatus destroyAggregate(AudioDeviceID device) override;

  Listener addListener(AudioProperty property, AudioDeviceID device, std::uint32_t element,
                       SerialQueue& queue, std::function<void()> changed) override;
  std::unique_ptr<OutputUnit> createOutputUnit(AudioStatus& status) override;

 private:
  explicit PipeWireAudioHardware(std::shared_ptr<PipeWireSystem> system);
  const std::shared_ptr<PipeWireSystem> _system;
  const std::unique_ptr<PipeWireAggregates> _aggregates;
};

}  // namespace velorin
