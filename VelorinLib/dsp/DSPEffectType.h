// The closed set of effects, and what each is called.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace velorin {

/// In the order of the list from which a listener adds one.
enum class DSPEffectType {
  preAmp,
  replayGain,
  crossfeed,
  stereoWidener,
  equalizer,
  headphoneProfile,
  channelSwap,
  phaseInvert,
  balance,
  monoMix,
  dither,
  tubeWarmth,
  vinylSimulator,
  spatialAudio,
  subsonicFilter,
  loudnessCompensation,
  riaaVinylCurve,
  declicker,
};

inline constexpr std::size_t kEffectCount = 18;

/// All of them, in that order.
const std::array<DSPEffectType, kEffectCount>& allEffectTypes() noexcept;

struct EffectNames {
  std::string_view rawValue;     ///< what is stored: the name of the case
  std::string_view displayName;  ///< "Pre-Amp"
  std::string_view badge;        ///< "PRE"
  std::string_view icon;         ///< name of a symbol
  std::string_view id;           ///< what the effect reports, "com.velorin.dsp.preamp"
  std::string_view name;         ///< "Pre-amp"
  std::string_view shortName;    ///< "Pre"
};

const EffectNames& namesOf(DSPEffectType type) noexcept;

std::optional<DSPEffectType> effectType(std::string_view rawValue) noexcept;

}  // namespace velorin
