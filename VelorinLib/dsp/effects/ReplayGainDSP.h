// Loudness normalisation by what tags or the loudness scan say of the current track.
#pragma once

#include <atomic>

#include "dsp/DSPEffect.h"
#include "dsp/HeldValue.h"
#include "records/Track.h"

namespace velorin {

/// A positive gain is capped so that the track's peak lands at full scale. At exactly 0 dB not one
/// bit changes, whatever the peak.
class ReplayGainDSP : public DSPEffect {
 public:
  enum class Mode { track, album };

  ReplayGainDSP() : DSPEffect(DSPEffectType::replayGain) {}

  // Any thread but the render thread.
  void setMode(Mode mode) noexcept { _mode.store(mode, std::memory_order_relaxed); }
  Mode mode() const noexcept { return _mode.load(std::memory_order_relaxed); }

  /// Gain in dB, held within 100 either way, and peak, linear, of the track that plays. A peak that
  /// is no positive number is unknown.
  void setTrackGain(double gainDB, double peak) noexcept;
  void clearTrackGain() noexcept { setTrackGain(0, 0); }
  /// dB, before the cap.
  float gain() const noexcept { return _gainDB.get(); }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  std::atomic<Mode> _mode{Mode::track};
  HeldValue<float> _gainDB{-100, 100, 0};
  HeldValue<float> _peak{0, 1e9f, 0};
  std::atomic<float> _cachedBaseGain{1};
};

/// What a track asks for: dB, and a linear peak, 0 where nothing is known.
struct TrackGain {
  double gainDB = 0;
  double peak = 0;
};

/// Tags before our own scan, whose reference is -18 LUFS; in album mode the album's values before
/// the track's. A value that is not finite counts as none.
TrackGain trackGain(const Track& track, ReplayGainDSP::Mode mode);

}  // namespace velorin
