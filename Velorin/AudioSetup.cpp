#include "AudioSetup.h"

#include "engine/AudioEngine.h"
#include "platform/audio/AudioHardware.h"

namespace velorin {

void applySettings(const EngineOptions& options, AudioEngine& engine) {
  if (options.integer) engine.setIntegerMode(true);
  if (options.strategy) engine.setSampleRateStrategy(*options.strategy);
  if (options.multiplier) engine.setResamplingMultiplier(*options.multiplier);
  if (options.fixedRate) engine.setFixedSampleRate(*options.fixedRate);
  if (options.volume) engine.setVolume(static_cast<float>(*options.volume));
  if (options.exclusive) engine.setExclusiveMode(true);
}

AudioDeviceID findDevice(AudioHardware& hardware, std::string_view wanted) {
  if (const AudioDeviceID device = hardware.deviceForUID(wanted); device != kNoDevice) {
    return device;
  }
  for (const AudioDeviceID device : hardware.devices()) {
    if (hardware.hasOutputStreams(device) && hardware.deviceName(device) == wanted) return device;
  }
  return kNoDevice;
}

}  // namespace velorin
