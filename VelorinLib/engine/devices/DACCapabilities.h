// What a device can do and what it does now, for the device panel.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/audio/AudioTypes.h"

namespace velorin {

class AudioHardware;

struct DACCapabilities {
  std::string name;
  std::string manufacturer;         ///< "Unknown" where the device does not tell
  std::string transportType;        ///< as transportName()
  std::vector<double> sampleRates;  ///< Hz, lower bound of each range, in the device's order
  std::vector<int> bitDepths;       ///< sorted, each once, without 1 and 0
  std::uint32_t maxChannels = 0;
  bool supportsDSD = false;  ///< takes one-bit audio as it is
  double currentSampleRate = 0;
  std::uint32_t currentBitDepth = 0;
  pid_t hogPID = -1;  ///< process that holds the device, -1 for none
  std::uint32_t bufferFrameSize = 0;
  std::pair<std::uint32_t, std::uint32_t> bufferFrameRange;  ///< at least 1; the second not less
  bool supportsHardwareVolume = false;
};

/// Nothing for kNoDevice and for what has no output streams. Any thread but the render thread.
std::optional<DACCapabilities> deviceCapabilities(const AudioHardware& hardware,
                                                  AudioDeviceID device);

}  // namespace velorin
