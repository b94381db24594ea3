#include "dsp/DSPEffectType.h"

#include <algorithm>

namespace velorin {
namespace {

using enum DSPEffectType;

constexpr std::array<DSPEffectType, kEffectCount> kTypes{
    preAmp,         replayGain,       crossfeed,      stereoWidener,
    equalizer,      headphoneProfile, channelSwap,    phaseInvert,
    balance,        monoMix,          dither,         tubeWarmth,
    vinylSimulator, spatialAudio,     subsonicFilter, loudnessCompensation,
    riaaVinylCurve, declicker};

constexpr std::array<EffectNames, kEffectCount> kNames{{
    {"preAmp", "Pre-Amp", "PRE", "dial.low", "com.velorin.dsp.preamp", "Pre-amp", "Pre"},
    {"replayGain", "ReplayGain", "RG", "waveform.badge.magnifyingglass",
     "com.velorin.dsp.replaygain", "ReplayGain", "RG"},
    {"crossfeed", "Crossfeed", "CrF", "headphones", "com.velorin.dsp.crossfeed",
     "Linkwitz-Riley Crossfeed (vDSP)", "Linkwitz-Riley Crossfeed (vDSP)"},
    {"stereoWidener", "Stereo Widener", "STW", "arrow.left.and.right",
     "com.velorin.dsp.stereoWidener", "Stereo Widener", "Width"},
    {"equalizer", "Equalizer", "EQ", "slider.vertical.3", "com.velorin.dsp.equalizer",
     "Parametric EQ", "EQ"},
    {"headphoneProfile", "Headphone Profile", "HP", "headphones.circle",
     "com.velorin.dsp.headphoneProfile", "Headphone Profile", "HP"},
    {"channelSwap", "Channel Swap", "L↔R", "arrow.left.arrow.right", "com.velorin.dsp.channelSwap",
     "Channel Swap", "Swap"},
    {"phaseInvert", "Phase Invert", "Φ", "waveform.path", "com.velorin.dsp.phaseInvert",
     "Phase Invert", "Phase"},
    {"balance", "Balance", "BAL", "dial.medium", "com.velorin.dsp.balance", "Balance", "Bal"},
    {"monoMix", "Mono Mix", "MNO", "circle.lefthalf.filled", "com.velorin.dsp.monoMix", "Mono Mix",
     "Mono"},
    {"dither", "Dither", "DTH", "waveform", "com.velorin.dsp.dither", "Dither", "Dth"},
    {"tubeWarmth", "Tube Warmth", "TUBE", "flame", "com.velorin.dsp.tubeWarmth", "Tube Warmth",
     "Tube"},
    {"vinylSimulator", "Vinyl Simulator", "VNL", "record.circle", "com.velorin.dsp.vinylSimulator",
     "Vinyl Simulator", "Vinyl"},
    {"spatialAudio", "Spatial Audio", "3D", "speaker.wave.3", "com.velorin.dsp.spatialAudio",
     "Spatial Audio", "3D"},
    {"subsonicFilter", "Subsonic Filter", "SUB", "line.3.horizontal.decrease",
     "com.velorin.dsp.subsonicFilter", "Subsonic Filter", "Sub"},
    {"loudnessCompensation", "Loudness", "LOUD", "ear", "com.velorin.dsp.loudnessCompensation",
     "Loudness", "LOUD"},
    {"riaaVinylCurve", "RIAA Vinyl", "RIAA", "opticaldisc", "com.velorin.dsp.riaaVinylCurve",
     "RIAA Vinyl", "RIAA"},
    {"declicker", "Declicker", "DCK", "waveform.badge.minus", "com.velorin.dsp.declicker",
     "Declicker", "DClk"},
}};

}  // namespace

const std::array<DSPEffectType, kEffectCount>& allEffectTypes() noexcept {
  return kTypes;
}

const EffectNames& namesOf(DSPEffectType type) noexcept {
  return kNames[static_cast<std::size_t>(type)];
}

std::optional<DSPEffectType> effectType(std::string_view rawValue) noexcept {
  const auto found = std::ranges::find(kNames, rawValue, &EffectNames::rawValue);
  if (found == kNames.end()) return std::nullopt;
  return static_cast<DSPEffectType>(found - kNames.begin());
}

}  // namespace velorin
