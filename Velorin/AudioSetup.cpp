#include "AudioSetup.h"

#include "dsp/ChainFile.h"
#include "dsp/DSPEffects.h"
#include "dsp/presets/EQPresetManager.h"
#include "engine/AudioEngine.h"
#include "foundation/AtomicFile.h"
#include "foundation/Paths.h"
#include "foundation/Preferences.h"
#include "foundation/PropertyList.h"
#include "foundation/Text.h"
#include "platform/audio/AudioHardware.h"
#include "session/PlayerState.h"

namespace velorin {

std::optional<std::string> applyChainFile(const std::filesystem::path& path, AudioEngine& engine) {
  const auto file = readChainFile(path);
  if (!file) return file.error().text;
  if (const auto fault = apply(file.value(), engine.effects(), EQPresetManager::shared())) {
    return text::pathForDisplay(path) + ": " + fault->text;
  }
  return std::nullopt;
}

std::unique_ptr<Preferences> preferencesOfThisRun() {
  auto preferences = std::make_unique<Preferences>();
  std::string failure;
  const auto text = readFile(paths::preferencesFile(), failure);
  const auto stored = text ? propertyList::parse(*text) : std::nullopt;
  if (!stored) return preferences;
  if (const auto* values = std::get_if<PreferenceMap>(&stored->value)) {
    for (const auto& [key, value] : *values) preferences->registerDefault(key, value);
  }
  return preferences;
}

void applySettings(const EngineOptions& options, PlayerState& player) {
  if (options.integer) player.setIntegerMode(true);
  if (options.exclusive) player.setExclusiveMode(true);
  if (options.strategy) player.setSampleRateStrategy(*options.strategy);
  if (options.multiplier) player.setResamplingMultiplier(*options.multiplier);
  if (options.fixedRate) player.setFixedSampleRate(*options.fixedRate);
  if (options.forceHighRate) player.setForceHighSampleRate(true);
  if (options.memory) player.setMemoryPlayback(true);
  if (options.memoryLimit) player.setMemoryPlaybackLimitMB(*options.memoryLimit);
  if (options.volumeMode) player.setVolumeMode(*options.volumeMode);
  if (options.volume) player.setVolume(*options.volume);
  if (options.noGapless) player.setGaplessEnabled(false);
  if (options.crossfade) {
    player.setCrossfadeEnabled(*options.crossfade > 0);
    if (*options.crossfade > 0) player.setCrossfadeDuration(*options.crossfade);
  }
  if (options.noAlbumCrossfade) player.setKeepsAlbumsUncrossfaded(true);
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
