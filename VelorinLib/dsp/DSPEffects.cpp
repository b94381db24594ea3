#include "dsp/DSPEffects.h"

#include <algorithm>
#include <cmath>

#include "foundation/Uuid.h"

namespace velorin {

DSPEffect& DSPEffects::effect(DSPEffectType type) noexcept {
  switch (type) {
    case DSPEffectType::preAmp:
      return preAmp;
    case DSPEffectType::replayGain:
      return replayGain;
    case DSPEffectType::crossfeed:
      return crossfeed;
    case DSPEffectType::stereoWidener:
      return stereoWidener;
    case DSPEffectType::equalizer:
      return equalizer;
    case DSPEffectType::headphoneProfile:
      return headphoneProfile;
    case DSPEffectType::channelSwap:
      return channelSwap;
    case DSPEffectType::phaseInvert:
      return phaseInvert;
    case DSPEffectType::balance:
      return balance;
    case DSPEffectType::monoMix:
      return monoMix;
    case DSPEffectType::dither:
      return dither;
    case DSPEffectType::tubeWarmth:
      return tubeWarmth;
    case DSPEffectType::vinylSimulator:
      return vinylSimulator;
    case DSPEffectType::spatialAudio:
      return spatialAudio;
    case DSPEffectType::subsonicFilter:
      return subsonicFilter;
    case DSPEffectType::loudnessCompensation:
      return loudnessCompensation;
    case DSPEffectType::riaaVinylCurve:
      return riaaVinylCurve;
    case DSPEffectType::declicker:
      break;
  }
  return declicker;
}

HeadphoneProfileRef DSPEffects::findProfile(std::string_view id) const {
  if (!_profiles.isLoaded()) _profiles.load();
  return _profiles.profile(id);
}

void DSPEffects::applyChain(const std::vector<DSPChainEntry>& entries) {
  const MutexLock hold(_editing);
  std::vector<DSPProcessor*> processors;
  for (const DSPChainEntry& entry : entries) {
    DSPEffect& chosen = effect(entry.effectType);
    if (entry.effectType == DSPEffectType::headphoneProfile && entry.headphoneProfileId &&
        headphoneProfile.profileId() != entry.headphoneProfileId) {
      if (const auto profile = findProfile(*entry.headphoneProfileId)) {
        headphoneProfile.loadProfile(*profile, _sampleRate, _channels);
      }
    }
    const bool isNew = std::ranges::none_of(_entries, [&](const DSPChainEntry& before) {
      return before.effectType == entry.effectType;
    });
    // What comes in while the music plays has not been told its format.
    if (isNew && _formatIsKnown) chosen.sampleRateChanged(_sampleRate);
    chosen.setEnabled(entry.enabled);
    processors.push_back(&chosen);
  }
  _entries = entries;
  chain.setProcessors(std::move(processors));
}

void DSPEffects::formatChanged(double sampleRate, std::size_t channels) {
  const MutexLock hold(_editing);
  if (sampleRate > 0) _sampleRate = sampleRate;
  if (channels > 0) _channels = channels;
  if (!(sampleRate > 0) || channels == 0) return;
  _formatIsKnown = true;
  crossfeed.formatChanged(sampleRate);
  equalizer.configure(sampleRate, channels);
  headphoneProfile.configure(sampleRate, channels);
  chain.sampleRateChanged(sampleRate);
}

double DSPEffects::requiredHeadroomDB(const Track* track) const {
  double total = 0;
  if (preAmp.isEnabled()) total += std::max(0.0, static_cast<double>(preAmp.gain()));
  if (equalizer.isEnabled()) total += std::max(0.0, equalizer.peakGain());
  if (replayGain.isEnabled() && track != nullptr) {
    total += std::max(0.0, trackGain(*track, replayGain.mode()).gainDB);
  }
  if (loudnessCompensation.isEnabled()) {
    const float factor = loudnessCompensation.boostFactor();
    total += std::max(loudnessCompensation.maxBassBoostDB() * factor,
                      loudnessCompensation.maxTrebleBoostDB() * factor);
  }
  if (stereoWidener.isEnabled() && stereoWidener.width() > 1) {
    total += 20 * std::log10((stereoWidener.width() + 1) * 0.5);
  }
  return total;
}

DSPChainConfig chainOfSwitches(const std::function<bool(DSPEffectType)>& isEnabled) {
  DSPChainConfig config = defaultChainConfig();
  for (DSPChainEntry& entry : config.entries) entry.enabled = isEnabled(entry.effectType);
  for (const DSPEffectType type : allEffectTypes()) {
    const bool isThere = std::ranges::any_of(
        config.entries, [&](const DSPChainEntry& entry) { return entry.effectType == type; });
    // Without a chosen profile there is nothing to correct.
    if (isThere || type == DSPEffectType::headphoneProfile || !isEnabled(type)) continue;
    config.entries.push_back({makeUuid(), type, true, std::nullopt});
  }
  return config;
}

}  // namespace velorin
