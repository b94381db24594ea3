#include "engine/devices/DACCapabilities.h"

#include <algorithm>
#include <set>

#include "platform/audio/AudioHardware.h"

namespace velorin {
namespace {

void addFormats(const std::vector<PhysicalFormat>& formats, DACCapabilities& into) {
  std::set<int> depths;
  for (const PhysicalFormat& format : formats) {
    into.maxChannels = std::max(into.maxChannels, format.channels);
    if (format.bits == 1) into.supportsDSD = true;
    if (format.bits > 1) depths.insert(static_cast<int>(format.bits));
  }
  into.bitDepths.assign(depths.begin(), depths.end());
}

}  // namespace

std::optional<DACCapabilities> deviceCapabilities(const AudioHardware& hardware,
                                                  AudioDeviceID device) {
  if (device == kNoDevice || !hardware.hasOutputStreams(device)) return std::nullopt;
  DACCapabilities can;
  can.name = hardware.deviceName(device);
  can.manufacturer = hardware.manufacturer(device);
  if (can.manufacturer.empty()) can.manufacturer = "Unknown";
  can.transportType = transportName(hardware.transportType(device));
  for (const RateRange& range : hardware.availableSampleRates(device)) {
    can.sampleRates.push_back(range.minimum);
  }
  addFormats(hardware.physicalFormats(device), can);
  // A server need not tell formats, but it knows how many channels it plays.
  if (can.maxChannels == 0) can.maxChannels = hardware.outputChannels(device);
  can.currentSampleRate = hardware.nominalSampleRate(device);
  if (const auto format = hardware.currentPhysicalFormat(device))
    can.currentBitDepth = format->bits;
  can.hogPID = hardware.hogOwner(device);
  can.bufferFrameSize = hardware.bufferFrameSize(device).value_or(0);
  const FrameRange range = hardware.bufferFrameSizeRange(device).value_or(FrameRange{});
  can.bufferFrameRange.first = std::max(range.minimum, 1U);
  can.bufferFrameRange.second = std::max(range.maximum, can.bufferFrameRange.first);
  can.supportsHardwareVolume = hardware.hasVolume(device, 0) || hardware.hasVolume(device, 1);
  return can;
}

}  // namespace velorin
