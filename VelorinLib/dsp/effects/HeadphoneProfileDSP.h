// Correction of the frequency response of one model of headphones.
//
// Filters: R. Bristow-Johnson, "Cookbook formulae for audio EQ biquad filter coefficients".
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dsp/DSPEffect.h"
#include "dsp/effects/FilterFormat.h"
#include "dsp/presets/HeadphoneProfile.h"
#include "foundation/Mutex.h"
#include "foundation/RenderLock.h"

namespace velorin {

/// Multiplies by a profile's gain and runs its filters over every channel; does nothing while no
/// profile is loaded.
///
/// Filters are designed by whoever loads a profile or changes the format, never by the render
/// thread: from the first block of another format until the next configure() or loadProfile() audio
/// passes dry, without the gain too. New filters start from silence. All but process() may be
/// called on any thread but the render thread.
class HeadphoneProfileDSP : public DSPEffect {
 public:
  HeadphoneProfileDSP() : DSPEffect(DSPEffectType::headphoneProfile) {}

  /// Puts a profile in place for a format: rate in Hz, number of channels.
  void loadProfile(const HeadphoneProfile& profile, double sampleRate, std::size_t channels)
      EXCLUDES(_editing, _lock);

  void clearProfile() EXCLUDES(_editing, _lock);

  /// The format of the stream, told before output starts.
  void configure(double sampleRate, std::size_t channels) EXCLUDES(_editing, _lock);

  /// Of the loaded profile, if any.
  std::optional<std::string> profileId() const EXCLUDES(_editing);
  std::optional<std::string> profileModel() const EXCLUDES(_editing);

  /// Indexes of the profile's filters that cannot be had at the current rate and are left out:
  /// their frequency is at or above half of it, for one. Empty before a format is known.
  std::vector<int> unusableFilters() const EXCLUDES(_editing, _lock);

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;

 protected:
  /// For a derived class that wants the render thread to miss it.
  mutable RenderLock _lock;

 private:
  mutable Mutex _editing;  ///< one editor at a time; taken before _lock
  std::optional<std::string> _profileId GUARDED_BY(_editing);
  std::optional<std::string> _profileModel GUARDED_BY(_editing);
  std::vector<PEQFilter> _currentFilters GUARDED_BY(_editing);

  bool _hasProfile GUARDED_BY(_lock) = false;
  float _preampGain GUARDED_BY(_lock) = 1.0f;  ///< linear
  /// Unless _needsRebuild, made for _current; none where there is nothing to filter.
  std::unique_ptr<BiquadCascade> _biquadSetup GUARDED_BY(_lock);
  FilterFormat _current GUARDED_BY(_lock);  ///< the last format that either side knows of
  bool _needsRebuild GUARDED_BY(_lock) = false;
};

}  // namespace velorin
