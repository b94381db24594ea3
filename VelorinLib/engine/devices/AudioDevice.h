// An output device as the interface lists it.
#pragma once

#include <string>
#include <vector>

#include "platform/audio/AudioTypes.h"

namespace velorin {

/// An output device as listed.
struct AudioDevice {
  AudioDeviceID id = kNoDevice;
  std::string name;
  std::string uid;
  /// Lower bound of each nominal rate range in Hz, in the device's order.
  std::vector<double> sampleRates;
  bool isOutput = true;
};

}  // namespace velorin
