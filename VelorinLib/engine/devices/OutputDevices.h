// The device in use: which one it is, that it exists, its rate, and exclusive access to it.
#pragma once

#include <atomic>
#include <vector>

#include "engine/devices/AudioDevice.h"
#include "engine/rates/SampleRatePlan.h"
#include "platform/audio/AudioHardware.h"

namespace velorin {

class EventBus;

/// Changing operations: engine queue, under the lifecycle lock. The rest: any thread.
class OutputDevices {
 public:
  OutputDevices(AudioHardware& hardware, EventBus& bus);

  AudioDeviceID current() const noexcept { return _currentDeviceID; }
  void setCurrent(AudioDeviceID device) noexcept { _currentDeviceID = device; }

  /// Present output devices without the program's own aggregates.
  std::vector<AudioDevice> enumerateOutputDevices() const;

  /// "Unknown Device" for kNoDevice and for what is not there.
  std::string deviceName(AudioDeviceID device) const;

  /// Makes current() name a device with output streams: itself, else the system default, else the
  /// first there is. False when there is none.
  bool ensureValidOutputDevice();

  /// The current device refused and this one took its place; observers are told.
  void useFallback(AudioDeviceID device);

  // --- Rates ---

  /// Hz, in the device's order; a wide range stands for the common rates inside it.
  std::vector<double> supportedSampleRates() const;
  double nominalSampleRate() const;
  /// 4096 when the device does not tell.
  std::uint32_t bufferFrameSizeMax() const;
  RateOffer rateOffer() const;
  /// Blocks for 0.2 s when the rate has to change. False when the device is not at the rate then.
  bool setDeviceSampleRate(double rate);

  // --- Exclusive access ---

  bool isHogMode() const noexcept { return _isHogMode; }
  /// Takes exclusive access to the current device; on a refusal says why and stays shared.
  void enableHogMode();
  void disableHogMode();
  /// Exclusive access ends without us when the device goes, or is taken. True when it did: it is
  /// no longer held.
  bool noticeLostHogMode();

 private:
  AudioHardware& _hardware;
  EventBus& _bus;
  std::atomic<AudioDeviceID> _currentDeviceID{kNoDevice};
  std::atomic<bool> _isHogMode{false};
};

}  // namespace velorin
