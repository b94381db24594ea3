// What the player and its engine say for the signal path.
#include <array>

#include "dsp/DSPEffects.h"
#include "engine/AudioEngine.h"
#include "foundation/Preferences.h"
#include "session/PlayerStateImpl.h"
#include "session/SignalPath.h"

namespace velorin {
namespace {

std::string_view nameOf(DitherDSP::Algorithm algorithm) {
  constexpr std::array<std::string_view, 4> kNames{"TPDF", "Modified E-weighted", "Lipshitz",
                                                   "F-weighted"};
  return kNames[static_cast<std::size_t>(algorithm)];
}

std::optional<std::string> detail(DSPEffectType type, const DSPEffects& effects,
                                  const Preferences& preferences) {
  switch (type) {
    case DSPEffectType::preAmp:
      return detailOf::preAmp(effects.preAmp.gain() + effects.preAmp.offset());
    case DSPEffectType::replayGain:
      return detailOf::replayGain(effects.replayGain.gain(),
                                  effects.replayGain.mode() == ReplayGainDSP::Mode::album);
    case DSPEffectType::equalizer:
      return preferences.getText("equalizerPresetName").value_or("Flat");
    case DSPEffectType::dither:
      return detailOf::dither(effects.dither.targetBitDepth(), nameOf(effects.dither.algorithm()));
    default:
      return std::nullopt;
  }
}

/// What the render thread runs, in its order.
std::vector<SignalPathInput::Effect> effectsThatRun(DSPEffects& effects,
                                                    const Preferences& preferences) {
  std::vector<SignalPathInput::Effect> running;
  for (const DSPProcessor* each : effects.chain.processors()) {
    const auto* effect = dynamic_cast<const DSPEffect*>(each);
    if (effect == nullptr || !effect->isEnabled()) continue;
    running.push_back({effect->type(), detail(effect->type(), effects, preferences)});
  }
  return running;
}

}  // namespace

SignalPath PlayerState::buildSignalPath() {
  AudioEngine& engine = _impl->link.engine();
  DSPEffects& effects = engine.effects();
  SignalPathInput input;
  input.facts = engine.facts();
  if (const auto& current = _impl->currentTrack) input.track = current->track;
  input.exclusiveMode = exclusiveMode();
  input.integerMode = integerMode();
  input.strategy = sampleRateStrategy();
  input.volumeMode = engine.volumeMode();
  input.volume = volume();
  input.effects = effectsThatRun(effects, _impl->preferences);
  input.headroomDB = effects.headroomDSP.headroomDB();
  return velorin::buildSignalPath(input);
}

}  // namespace velorin
