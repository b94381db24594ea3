// Which device is to play when the list of devices or the system's default changed.
//
// A pure decision: what is there goes in, one move comes out. Following the system's default and
// playing on a chosen device are two modes; the rules of the one never run in the other.
#pragma once

#include <vector>

#include "platform/audio/AudioTypes.h"

namespace velorin {

/// What the rules look at. kNoDevice stands for "none".
struct DeviceView {
  std::vector<AudioDeviceID> present = {};  ///< output devices, in the system's order
  AudioDeviceID current = kNoDevice;
  AudioDeviceID systemDefault = kNoDevice;
  AudioDeviceID saved = kNoDevice;  ///< the listener's choice, where it is present
  /// Was lost, and is to be used again when it is back.
  AudioDeviceID awaited = kNoDevice;
  bool followsDefault = true;
  bool exclusiveMode = false;

  bool has(AudioDeviceID device) const;
};

enum class DeviceMove {
  stay,
  followDefault,  ///< to the new default
  switchBack,     ///< to the device that was lost and is back
  useSaved,       ///< to the listener's choice, which is present
  replaceLost,    ///< from a device that is gone to the default, or to the first there is
  noneLeft,       ///< there is no device at all
};

struct DeviceDecision {
  DeviceMove move = DeviceMove::stay;
  AudioDeviceID to = kNoDevice;  ///< kNoDevice for stay and noneLeft

  bool operator==(const DeviceDecision&) const = default;
};

DeviceDecision decide(const DeviceView& view);

}  // namespace velorin
