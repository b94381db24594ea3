// Output devices of the machine: which there are, what they can do, and units that play on them.
//
// Backends: PipeWire (shared devices), ALSA (hw devices taken exclusively), the two combined, and
// virtual (scripted devices, the paced null output, the unpaced recorder).
//
// Threads: every operation may be called from any thread but the render thread; backends lock
// inside. Listeners run on the queue they were given.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/audio/AudioTypes.h"
#include "platform/audio/OutputUnit.h"

namespace velorin {

class SerialQueue;

/// What one can listen to. `devices` and `defaultOutput` belong to the system, the others to a
/// device.
enum class AudioProperty { devices, defaultOutput, nominalSampleRate, volume };

class AudioHardware {
 public:
  virtual ~AudioHardware() = default;

  /// "PipeWire", "ALSA", "PipeWire + ALSA", "virtual".
  virtual std::string backendName() const = 0;

  // --- The system ---

  /// Ids of all present devices, in a stable order.
  virtual std::vector<AudioDeviceID> devices() const = 0;

  /// The system's default output, kNoDevice when there is none.
  virtual AudioDeviceID defaultOutputDevice() const = 0;

  /// The present device with that UID, else kNoDevice. A backend may make a device for a UID that
  /// it does not list (an ALSA PCM by name).
  virtual AudioDeviceID deviceForUID(std::string_view uid) = 0;

  // --- A device. For an unknown id: empty, 0, nullopt or -ENODEV. ---

  virtual bool hasOutputStreams(AudioDeviceID device) const = 0;
  virtual std::string deviceName(AudioDeviceID device) const = 0;
  virtual std::string manufacturer(AudioDeviceID device) const = 0;
  virtual std::string deviceUID(AudioDeviceID device) const = 0;
  virtual TransportType transportType(AudioDeviceID device) const = 0;

  /// In the device's order; empty when it does not tell.
  virtual std::vector<RateRange> availableSampleRates(AudioDeviceID device) const = 0;
  /// Hz the device runs at, or would run at when started now; 0 when unknown.
  virtual double nominalSampleRate(AudioDeviceID device) const = 0;
  virtual AudioStatus setNominalSampleRate(AudioDeviceID device, double rate) = 0;
  /// True when a unit takes a stream of another rate than the device's and the rate is converted
  /// on the way, as a sound server does.
  virtual bool convertsSampleRates(AudioDeviceID device) const = 0;

  virtual std::vector<PhysicalFormat> physicalFormats(AudioDeviceID device) const = 0;
  virtual std::optional<PhysicalFormat> currentPhysicalFormat(AudioDeviceID device) const = 0;
  virtual std::uint32_t outputChannels(AudioDeviceID device) const = 0;

  /// Frames of one callback.
  virtual std::optional<std::uint32_t> bufferFrameSize(AudioDeviceID device) const = 0;
  virtual std::optional<FrameRange> bufferFrameSizeRange(AudioDeviceID device) const = 0;
  virtual AudioStatus setBufferFrameSize(AudioDeviceID device, std::uint32_t frames) = 0;
  /// Frames between the callback and the jack beyond the buffer itself.
  virtual std::uint32_t latency(AudioDeviceID device) const = 0;
  virtual std::uint32_t safetyOffset(AudioDeviceID device) const = 0;

  /// Process that holds the device exclusively, -1 for none.
  virtual pid_t hogOwner(AudioDeviceID device) const = 0;
  /// Takes (this process's id) or gives back (-1) exclusive access. -EBUSY when another program
  /// holds the device and does not let go; the text names it where that is known.
  virtual AudioStatus setHogOwner(AudioDeviceID device, pid_t owner) = 0;

  /// Volume 0 to 1 of an element: 0 the device as a whole, 1 and 2 left and right.
  virtual bool hasVolume(AudioDeviceID device, std::uint32_t element) const = 0;
  virtual std::optional<float> volume(AudioDeviceID device, std::uint32_t element) const = 0;
  virtual AudioStatus setVolume(AudioDeviceID device, std::uint32_t element, float value) = 0;

  // --- Several devices as one ---

  struct AggregateDescription {
    std::string name;
    std::string uid;
    /// In order; the first sets the clock, the others are kept in step with it.
    std::vector<std::string> subDeviceUIDs;
  };
  virtual AudioStatus createAggregate(const AggregateDescription& description,
                                      AudioDeviceID& created) = 0;
  virtual AudioStatus destroyAggregate(AudioDeviceID device) = 0;

  // --- Listening ---

  /// Ends the listening when destroyed; no call starts after that.
  class Listener {
   public:
    Listener() = default;
    explicit Listener(std::shared_ptr<void> token) : _token(std::move(token)) {}
    void reset() { _token.reset(); }
    explicit operator bool() const noexcept { return _token != nullptr; }

   private:
    std::shared_ptr<void> _token;
  };

  /// Calls `changed` on the queue after each change; of a volume after those that somebody else has
  /// made, where setVolume() can be told from them. `device` and `element` are ignored for
  /// system properties. An empty Listener when the property cannot be listened to. The queue must
  /// outlive the Listener.
  virtual Listener addListener(AudioProperty property, AudioDeviceID device, std::uint32_t element,
                               SerialQueue& queue, std::function<void()> changed) = 0;

  // --- Playing ---

  /// A new unit, not bound to a device; null with `status` set when the backend cannot make one.
  /// The unit must not outlive this object.
  virtual std::unique_ptr<OutputUnit> createOutputUnit(AudioStatus& status) = 0;
};

}  // namespace velorin
