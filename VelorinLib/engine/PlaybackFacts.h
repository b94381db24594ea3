// What is known of the playing sound's road from the file to the device.
#pragma once

#include <optional>
#include <string>

#include "engine/decoders/FillThreadDecoder.h"
#include "platform/audio/AudioTypes.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

/// The road of the playing sound from file to device, each value read where it is true.
struct PlaybackFacts {
  StreamFormat fileFormat;
  StreamFormat clientFormat;  ///< what the ring holds and the unit delivers
  int sourceBitDepth = 0;
  std::optional<DecoderInfo> decoder;
  double resampledFrom = 0;  ///< Hz before our resampler, 0 without one
  double resampledTo = 0;
  bool isInMemory = false;  ///< decoded from RAM
  double dsdRate = 0;       ///< Hz of the one-bit source, 0 for PCM
  bool isIntegerOutput = false;
  bool deviceRateVerified = false;
  bool softwareVolumeActive = false;
  bool effectsActive = false;
  std::string deviceName;
  std::string transport;  ///< how the device is attached, as transportName()
  OutputReport output;
};

/// The verdict on a path, and why. Nothing is called bit-perfect that was not read back.
struct PathVerdict {
  bool bitPerfect = false;
  std::string reason;  ///< e.g. "volume below 100 %", empty when bit-perfect
};
PathVerdict judge(const PlaybackFacts& facts);

}  // namespace velorin
