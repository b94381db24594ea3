// Every effect of the program, each once, with the chain that runs them and the stages around it.
#pragma once

#include <functional>
#include <vector>

#include "dsp/DSPChain.h"
#include "dsp/DSPChainConfig.h"
#include "dsp/effects/ChannelEffects.h"
#include "dsp/effects/CrossfeedDSP.h"
#include "dsp/effects/DeclickerDSP.h"
#include "dsp/effects/DitherDSP.h"
#include "dsp/effects/EqualizerDSP.h"
#include "dsp/effects/HeadphoneProfileDSP.h"
#include "dsp/effects/HeadroomDSP.h"
#include "dsp/effects/LoudnessCompensationDSP.h"
#include "dsp/effects/PreAmpDSP.h"
#include "dsp/effects/RIAAVinylCurveDSP.h"
#include "dsp/effects/ReplayGainDSP.h"
#include "dsp/effects/SpatialAudioDSP.h"
#include "dsp/effects/StereoWidenerDSP.h"
#include "dsp/effects/SubsonicFilterDSP.h"
#include "dsp/effects/TubeWarmthDSP.h"
#include "dsp/effects/VinylSimulatorDSP.h"
#include "dsp/presets/HeadphoneProfileDatabase.h"
#include "foundation/Mutex.h"

namespace velorin {

/// What the render thread runs, in this order.
struct DSPStages {
  HeadroomDSP& headroom;
  DSPChain& chain;
  ClippingDetector& clipping;
};

/// The effects live as long as this; the chain only lists them. Any thread but the render thread.
class DSPEffects {
 public:
  /// The database, in which profiles are looked up by id, outlives this.
  explicit DSPEffects(HeadphoneProfileDatabase& profiles = HeadphoneProfileDatabase::shared(),
                      bool diagnosticsEnabled = false)
      : chain(diagnosticsEnabled), _profiles(profiles) {}
  DSPEffects(const DSPEffects&) = delete;
  DSPEffects& operator=(const DSPEffects&) = delete;

  DSPEffect& effect(DSPEffectType type) noexcept;

  /// Makes the chain that of the entries: order, switches, and the headphone profile where one is
  /// named; a profile that is not known leaves the effect with what it holds.
  void applyChain(const std::vector<DSPChainEntry>& entries) EXCLUDES(_editing);
  bool knowsProfile(std::string_view id) const { return findProfile(id) != nullptr; }

  /// What was applied last.
  std::vector<DSPChainEntry> entries() const EXCLUDES(_editing) {
    const MutexLock hold(_editing);
    return _entries;
  }

  /// Tells everyone the format of the stream, before its output starts. A rate in Hz or a count of
  /// channels of 0 is no format: the effects keep what they know.
  void formatChanged(double sampleRate, std::size_t channels) EXCLUDES(_editing);

  /// The largest sum of what the enabled effects can add to a track, in dB, 0 or more. Of a track
  /// that is not known, without its ReplayGain.
  double requiredHeadroomDB(const Track* track) const;

  DSPStages stages() noexcept { return {headroomDSP, chain, clippingDetector}; }

  DSPChain chain;
  PreAmpDSP preAmp;
  ReplayGainDSP replayGain;
  CrossfeedDSP crossfeed;
  StereoWidenerDSP stereoWidener;
  ChannelSwapDSP channelSwap;
  PhaseInvertDSP phaseInvert;
  BalanceDSP balance;
  MonoMixDSP monoMix;
  DitherDSP dither;
  EqualizerDSP equalizer;
  HeadphoneProfileDSP headphoneProfile;
  TubeWarmthDSP tubeWarmth;
  VinylSimulatorDSP vinylSimulator;
  SpatialAudioDSP spatialAudio;
  SubsonicFilterDSP subsonicFilter;
  LoudnessCompensationDSP loudnessCompensation;
  RIAAVinylCurveDSP riaaVinylCurve;
  DeclickerDSP declicker;
  ClippingDetector clippingDetector;
  HeadroomDSP headroomDSP{clippingDetector};

 private:
  /// The first question loads the database.
  HeadphoneProfileRef findProfile(std::string_view id) const;

  HeadphoneProfileDatabase& _profiles;
  mutable Mutex _editing;  ///< taken before those of the effects and of the chain
  std::vector<DSPChainEntry> _entries GUARDED_BY(_editing);
  double _sampleRate GUARDED_BY(_editing) = 44100;
  std::size_t _channels GUARDED_BY(_editing) = 2;
  bool _formatIsKnown GUARDED_BY(_editing) = false;
};

/// The chain of a start without a stored one: the default entries, switched as the effects are,
/// and behind them every other effect that is on.
DSPChainConfig chainOfSwitches(const std::function<bool(DSPEffectType)>& isEnabled);

}  // namespace velorin
