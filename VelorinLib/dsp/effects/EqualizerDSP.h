// The parametric equalizer.
//
// Filters: R. Bristow-Johnson, "Cookbook formulae for audio EQ biquad filter coefficients".
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "dsp/DSPEffect.h"
#include "dsp/effects/FilterFormat.h"
#include "dsp/presets/EQBand.h"
#include "foundation/Mutex.h"
#include "foundation/RenderLock.h"

namespace velorin {

/// 31 bands, each of any type. Only bands that are active take a section, and while none is the
/// audio passes untouched for the cost of reading a flag.
///
/// Filters are designed by whoever changes bands or format, never by the render thread: from the
/// first block of another format until the next configure() or change of bands, audio passes dry.
/// New filters start from silence. All but process() may be called on any thread but the render
/// thread.
class EqualizerDSP : public DSPEffect {
 public:
  /// Bands that the design reads: of fewer there is no equalizer, of more the first.
  static constexpr std::size_t kSectionCount = kEQGrid.size();

  EqualizerDSP() : DSPEffect(DSPEffectType::equalizer), _bands(flatBands()) {}

  /// The format of the stream, told before output starts: rate in Hz, number of channels.
  void configure(double sampleRate, std::size_t channelCount) EXCLUDES(_editing, _lock);

  /// Replaces all bands; gain and Q are held within EQBand's limits.
  void setBands(std::span<const EQBand> bands) EXCLUDES(_editing, _lock);

  /// Changes of one band what is given; an index beyond the bands is passed over.
  void updateBand(std::size_t index, std::optional<double> gain, std::optional<double> q,
                  std::optional<EQBand::FilterType> filterType) EXCLUDES(_editing, _lock);

  /// All bands peaking with gain 0 and the default Q; the frequencies stay.
  void resetBands() EXCLUDES(_editing, _lock);

  std::vector<EQBand> bands() const EXCLUDES(_editing);

  /// The largest gain of a band in dB, 0 without bands.
  double peakGain() const EXCLUDES(_editing);

  /// True when no band would change the sound.
  bool isFlat() const noexcept { return _isFlat.load(std::memory_order_relaxed); }

  /// Indexes of the bands that have no filter at the current rate, active or not: their frequency
  /// is at or above half of it. Empty before the first format is known.
  std::vector<int> unusableBands() const EXCLUDES(_editing, _lock);

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;

 protected:
  /// For a derived class that wants the render thread to miss it.
  mutable RenderLock _lock;

 private:
  void replaceBands(std::vector<EQBand> bands) REQUIRES(_editing) EXCLUDES(_lock);
  std::unique_ptr<BiquadCascade> build(const FilterFormat& format) const REQUIRES(_editing);

  mutable Mutex _editing;  ///< one editor at a time; taken before _lock
  std::vector<EQBand> _bands GUARDED_BY(_editing);

  std::atomic<bool> _isFlat{true};

  /// Unless _needsRebuild, made for _current; none where there is nothing to filter.
  std::unique_ptr<BiquadCascade> _biquadSetup GUARDED_BY(_lock);
  FilterFormat _current GUARDED_BY(_lock);  ///< the last format that either side knows of
  bool _needsRebuild GUARDED_BY(_lock) = true;
};

}  // namespace velorin
