#include "engine/devices/OutputDevices.h"

#include <fmt/ranges.h>
#include <unistd.h>

#include <thread>

#include "engine/devices/AggregateDeviceManager.h"
#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "records/Events.h"

namespace velorin {
namespace {

constexpr double kRateTolerance = 1.0;
constexpr std::uint32_t kBufferFramesWhenUnknown = 4096;
/// A device that has not switched by then does not switch.
constexpr std::chrono::milliseconds kRateSwitchTime{200};

constexpr std::array kCommonRates = {8000.0,   11025.0,  12000.0,  16000.0,  22050.0,  24000.0,
                                     32000.0,  44100.0,  48000.0,  64000.0,  88200.0,  96000.0,
                                     176400.0, 192000.0, 352800.0, 384000.0, 705600.0, 768000.0};

bool sameRate(double a, double b) {
  return std::abs(a - b) <= kRateTolerance;
}

}  // namespace

OutputDevices::OutputDevices(AudioHardware& hardware, EventBus& bus)
    : _hardware(hardware), _bus(bus) {}

std::vector<AudioDevice> OutputDevices::enumerateOutputDevices() const {
  std::vector<AudioDevice> list;
  for (AudioDeviceID id : _hardware.devices()) {
    if (!_hardware.hasOutputStreams(id)) continue;
    AudioDevice device;
    device.id = id;
    device.name = _hardware.deviceName(id);
    device.uid = _hardware.deviceUID(id);
    if (isOwnAggregate(device.uid)) continue;
    for (const RateRange& range : _hardware.availableSampleRates(id)) {
      device.sampleRates.push_back(range.minimum);
    }
    list.push_back(std::move(device));
  }
  return list;
}

std::string OutputDevices::deviceName(AudioDeviceID device) const {
  std::string name = device != kNoDevice ? _hardware.deviceName(device) : std::string();
  return name.empty() ? "Unknown Device" : name;
}

bool OutputDevices::ensureValidOutputDevice() {
  const AudioDeviceID old = _currentDeviceID;
  if (old != kNoDevice && _hardware.hasOutputStreams(old)) return true;

  const AudioDeviceID preferred = _hardware.defaultOutputDevice();
  if (preferred != kNoDevice && _hardware.hasOutputStreams(preferred)) {
    _currentDeviceID = preferred;
    log::line("🔁 Switched to default output device {}", preferred);
    if (preferred != old) _bus.postOnMain(AudioDevicesDidChange{});
    return true;
  }
  const auto list = enumerateOutputDevices();
  if (list.empty()) {
    _currentDeviceID = kNoDevice;
    return false;
  }
  _currentDeviceID = list.front().id;
  log::line("🔁 Switched to fallback output device {}", list.front().id);
  _bus.postOnMain(AudioDevicesDidChange{});
  return true;
}

void OutputDevices::useFallback(AudioDeviceID device) {
  _currentDeviceID = device;
  _bus.postOnMain(AudioDevicesDidChange{});
}

std::vector<double> OutputDevices::supportedSampleRates() const {
  std::vector<double> rates;
  for (const RateRange& range : _hardware.availableSampleRates(current())) {
    rates.push_back(range.minimum);
    for (double common : kCommonRates) {
      if (common > range.minimum + kRateTolerance && common <= range.maximum) {
        rates.push_back(common);
      }
    }
  }
  return rates;
}

double OutputDevices::nominalSampleRate() const {
  return _hardware.nominalSampleRate(current());
}

std::uint32_t OutputDevices::bufferFrameSizeMax() const {
  const auto range = _hardware.bufferFrameSizeRange(current());
  return range ? range->maximum : kBufferFramesWhenUnknown;
}

RateOffer OutputDevices::rateOffer() const {
  return {supportedSampleRates(), bufferFrameSizeMax(), _hardware.convertsSampleRates(current())};
}

bool OutputDevices::setDeviceSampleRate(double rate) {
  if (!ensureValidOutputDevice()) {
    log::line("⚠️ No valid output device available for sample-rate switch");
    return false;
  }
  if (sameRate(nominalSampleRate(), rate)) {
    log::line("🎵 Device already at {:.0f} Hz", rate);
    return true;
  }
  const RateOffer offer = rateOffer();
  if (!offer.rates.empty() && !offer.has(rate)) {
    log::line("❌ Device does not support {:.0f} Hz. Supported: {:.0f}", rate,
              fmt::join(offer.rates, ", "));
    return false;
  }
  if (const AudioStatus status = _hardware.setNominalSampleRate(current(), rate); !status.ok()) {
    log::line("⚠️ Failed to set sample rate to {:.0f}Hz: {}", rate, status.description());
    return false;
  }
  std::this_thread::sleep_for(kRateSwitchTime);
  if (const double now = nominalSampleRate(); !sameRate(now, rate)) {
    log::line("⚠️ Device rate is {:.0f}Hz, expected {:.0f}Hz", now, rate);
    return false;
  }
  log::line("🎵 Device sample rate set to {:.0f} Hz", rate);
  return true;
}

void OutputDevices::enableHogMode() {
  if (_isHogMode) return;
  const AudioDeviceID device = current();
  if (const AudioStatus status = _hardware.setHogOwner(device, getpid()); !status.ok()) {
    log::line("⚠️ Failed to enable hog mode: {}", status.description());
    return;
  }
  if (_hardware.hogOwner(device) != getpid()) {
    log::line("⚠️ Failed to enable hog mode: device {} is not ours after all", device);
    return;
  }
  _isHogMode = true;
  log::line("🔒 Hog mode enabled on device {}", device);
}

void OutputDevices::disableHogMode() {
  if (!_isHogMode) return;
  (void)_hardware.setHogOwner(current(), -1);
  _isHogMode = false;
  log::line("🔓 Hog mode disabled");
}

bool OutputDevices::noticeLostHogMode() {
  if (!_isHogMode || _hardware.hogOwner(current()) == getpid()) return false;
  _isHogMode = false;
  log::line("⚠️ Exclusive access to device {} was lost", current());
  return true;
}

}  // namespace velorin
