// What is remembered for each output device: playback modes and the effect settings that belong
// to a device rather than to the listener.
//
// A plain value record. A default-constructed one holds, field by field, what a stored profile
// reads as where it has no value. Effects that are not listed here are the same on all devices.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velorin {

struct DeviceSettings {
  // Output
  bool exclusiveMode = false;
  bool integerMode = false;
  bool gaplessPlayback = false;
  bool memoryPlayback = false;
  int memoryPlaybackLimitMB = 256;  ///< MiB, above 0
  bool forceHighSampleRate = false;
  int sampleRateStrategy = 0;    ///< raw value of SampleRateStrategy
  int resamplingMultiplier = 2;  ///< at least 2
  double fixedSampleRate = 0;    ///< Hz, 0 for none
  bool lowLatencyMode = false;
  bool crossfadePlaybackEnabled = false;
  double crossfadeDuration = 3.0;  ///< seconds, above 0

  // Stereo image
  bool crossfeedEnabled = false;
  double crossfeedCutoff = 700.0;   ///< Hz, above 0
  double crossfeedLevel = 0.595;    ///< linear, above 0
  double crossfeedDelay = 0.00027;  ///< seconds, above 0
  bool stereoWidenerEnabled = false;
  float stereoWidenerWidth = 1.0F;
  int stereoWidenerAlgorithm = 0;

  // Channels and level
  bool channelSwapEnabled = false;
  bool phaseInvertEnabled = false;
  int phaseInvertChannel = 0;  ///< 0 left, 1 right, 2 both
  bool balanceEnabled = false;
  float balanceValue = 0;
  bool monoMixEnabled = false;
  bool preAmpEnabled = false;
  float preAmpGainDB = 0;
  bool replayGainEnabled = false;
  int replayGainMode = 0;  ///< 0 track, 1 album

  // Word length, equalizer, volume, chain
  bool ditherEnabled = false;
  int ditherTargetBitDepth = 16;  ///< above 0
  int ditherAlgorithm = 0;
  bool equalizerEnabled = false;
  std::string equalizerPresetName = "Flat";
  int volumeMode = 0;                                           ///< raw value of VolumeMode
  std::optional<std::vector<std::uint8_t>> dspChainConfigData;  ///< JSON of the effect chain

  bool operator==(const DeviceSettings&) const = default;
};

}  // namespace velorin
