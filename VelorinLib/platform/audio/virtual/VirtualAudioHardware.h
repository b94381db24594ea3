// Devices without hardware: scripted ones for tests, the paced null output of a machine without
// sound, and the unpaced recorder.
//
// A device is a description; a unit on it is driven in one of three ways:
//   manual   the test calls pull() on the hardware, on whatever thread it likes;
//   paced    a thread calls back once per buffer, by the clock;
//   unpaced  a thread calls back as fast as the pull gate lets it.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Mutex.h"
#include "platform/audio/AudioHardware.h"

namespace velorin {

enum class VirtualClock { manual, paced, unpaced };

/// Which operation of a scripted device fails next, and with what.
enum class VirtualOperation {
  setNominalSampleRate,
  setBufferFrameSize,
  bufferFrameSizeRange,
  setHogOwner,
  createOutputUnit,
  setDevice,
  setMaximumFramesPerSlice,
  setInputFormat,
  setRenderCallback,
  initialize,
  start,
  createAggregate,
};

/// Hears what a virtual device is given. record() is called on the device's render thread, outside
/// of the realtime scope: it may allocate and write files.
class VirtualRecorder {
 public:
  virtual ~VirtualRecorder() = default;
  /// A unit was initialized; frames of this format follow. On the thread that initialized it.
  virtual void begin(const StreamFormat& format) = 0;
  /// One buffer as rendered. The first `programme` frames carry programme, the rest is silence
  /// that the renderer padded with.
  virtual void record(const AudioBufferList& list, std::uint32_t frames,
                      std::uint32_t programme) = 0;
  /// The unit was uninitialized; a pause and a resume lie between begin() and end(). On the
  /// thread that uninitialized it.
  virtual void end() = 0;
};

/// Asked before each callback of an unpaced device whether `frames` frames can be rendered (or the
/// stream has ended); it may lower the number, to no less than 1. While false the device waits. On
/// the device's thread.
using VirtualPullGate = std::function<bool(std::uint32_t& frames)>;

struct VirtualDeviceDescription {
  std::string uid = "virtual";
  std::string name = "Virtual output";
  std::string manufacturer = "Velorin";
  TransportType transport = TransportType::virtualDevice;
  std::vector<RateRange> rates = {{44100, 44100}, {48000, 48000}};
  double nominalRate = 44100;
  FrameRange bufferRange = {64, 4096};
  std::uint32_t bufferFrames = 512;
  std::uint32_t latencyFrames = 0;
  std::uint32_t safetyOffsetFrames = 0;
  std::uint32_t channels = 2;
  std::vector<PhysicalFormat> physicalFormats = {{16, false, 2}, {24, false, 2}, {32, false, 2}};
  bool acceptsInteger = true;  ///< false: integer input formats are refused, float is taken
  /// false: a unit whose format is not at the nominal rate does not initialize.
  bool convertsRates = true;
  /// What a stopped unit says it dropped, at most what it rendered since its start.
  std::uint32_t framesDroppedOnStop = 0;
  bool hasStreams = true;
  pid_t hogOwner = -1;
  std::optional<float> volume = std::nullopt;
  VirtualClock clock = VirtualClock::manual;
  /// A set of the nominal rate is granted as this instead, when not 0.
  double rateThatSticks = 0;
  VirtualPullGate pullGate = {};  ///< unpaced only; null: always open
  std::shared_ptr<VirtualRecorder> recorder = {};
};

class VirtualAudioHardware : public AudioHardware {
 public:
  VirtualAudioHardware();
  ~VirtualAudioHardware() override;

  // --- Script ---

  /// Plugs a device in; listeners of `devices` are told. The first one becomes the default.
  AudioDeviceID addDevice(VirtualDeviceDescription description);
  /// Unplugs: callbacks end, then units on it get deviceLost on this thread. An aggregate goes
  /// with its last device. The next device in order becomes the default.
  void removeDevice(AudioDeviceID device);
  void setDefaultOutputDevice(AudioDeviceID device);
  /// The next `times` calls of the operation (on any device) fail with the status.
  void failNext(VirtualOperation operation, AudioStatus status, int times = 1);
  /// Sets the pull gate or the recorder of a device after it was added; not while a unit runs.
  void setPullGate(AudioDeviceID device, VirtualPullGate gate);
  void setRecorder(AudioDeviceID device, std::shared_ptr<VirtualRecorder> recorder);

  /// Manual devices: one callback of `frames` frames (0: the device's buffer size) on the calling
  /// thread, or several when the unit's slices are smaller. False when no unit is started on the
  /// device. `copyTo`, if set, receives the list right after each callback.
  bool pull(AudioDeviceID device, std::uint32_t frames = 0,
            const std::function<void(const AudioBufferList&, std::uint32_t frames,
                                     std::uint32_t programme)>& copyTo = {});
  /// Makes a started unit on the device report an event to its handler.
  void raise(AudioDeviceID device, OutputEvent event);
  /// Frames rendered on the device by all its units so far. Any thread, lock-free.
  std::uint64_t framesRendered(AudioDeviceID device) const;
  /// Calls of the operation so far, on any device.
  int callCount(VirtualOperation operation) const;
  /// True while a unit on the device is between start() and stop().
  bool isRunning(AudioDeviceID device) const;

  // --- AudioHardware ---

  std::string backendName() const override;
  std::vector<AudioDeviceID> devices() const override;
  AudioDeviceID defaultOutputDevice() const override;
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
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

/// A device that plays into nothing at the pace of a real one, for a machine without sound: every
/// common rate from 8 to 384 kHz, buffers of up to 16,384 frames.
VirtualDeviceDescription pacedNullOutput();

}  // namespace velorin
