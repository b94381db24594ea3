#include "AudioSetup.h"

#include "dsp/ChainFile.h"
#include "dsp/DSPEffects.h"
#include "dsp/presets/EQPresetManager.h"
#include "engine/AudioEngine.h"
#include "foundation/Text.h"
#include "platform/audio/AudioHardware.h"

namespace velorin {

std::optional<std::string> applyChainFile(const std::filesystem::path& path, AudioEngine& engine) {
  const auto file = readChainFile(path);
  if (!file) return file.error().text;
  if (const auto fault = apply(file.value(), engine.effects(), EQPresetManager::shared())) {
    return text::pathForDisplay(path) + ": " + fault->text;
  }
  return std::nullopt;
}

void prepareEffects(const Track& track, AudioEngine& engine) {
  DSPEffects& effects = engine.effects();
  const TrackGain gain = trackGain(track, effects.replayGain.mode());
  effects.replayGain.setTrackGain(static_cast<float>(gain.gainDB), static_cast<float>(gain.peak));
  effects.headroomDSP.setHeadroom(static_cast<float>(effects.requiredHeadroomDB(&track)));
}

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
