#include "dsp/effects/HeadphoneProfileDSP.h"

#include <cmath>
#include <utility>

#include "platform/vector/Vector.h"

namespace velorin {
namespace {

// A gain that a float cannot hold would make noise of silence: such a file is not to be believed.
float linearGain(double decibels) {
  const float gain = std::pow(10.0f, static_cast<float>(decibels) / 20.0f);
  return std::isfinite(gain) ? gain : 1.0f;
}

std::unique_ptr<BiquadCascade> build(const std::vector<PEQFilter>& filters,
                                     const FilterFormat& format) {
  std::vector<BiquadCoefficients> sections;
  for (const PEQFilter& filter : filters) {
    if (const auto section = filter.design(format.sampleRate)) sections.push_back(*section);
  }
  return makeCascade(sections, format);
}

}  // namespace

void HeadphoneProfileDSP::loadProfile(const HeadphoneProfile& profile, double sampleRate,
                                      std::size_t channels) {
  const FilterFormat format{sampleRate, channels};
  const float gain = linearGain(profile.preamp);
  const MutexLock editing(_editing);
  _profileId = profile.id;
  _profileModel = profile.model;
  _currentFilters = profile.filters;
  std::unique_ptr<BiquadCascade> setup = build(_currentFilters, format);
  const RenderLockHold hold(_lock);
  _hasProfile = true;
  _preampGain = gain;
  _biquadSetup.swap(setup);
  _current = format;
  _needsRebuild = false;
}

void HeadphoneProfileDSP::clearProfile() {
  const MutexLock editing(_editing);
  _profileId.reset();
  _profileModel.reset();
  _currentFilters.clear();
  std::unique_ptr<BiquadCascade> none;
  const RenderLockHold hold(_lock);
  _hasProfile = false;
  _preampGain = 1.0f;
  _biquadSetup.swap(none);
  _needsRebuild = false;
}

void HeadphoneProfileDSP::configure(double sampleRate, std::size_t channels) {
  const FilterFormat format{sampleRate, channels};
  const MutexLock editing(_editing);
  std::unique_ptr<BiquadCascade> setup = build(_currentFilters, format);
  const RenderLockHold hold(_lock);
  _biquadSetup.swap(setup);
  _current = format;
  _needsRebuild = false;
}

std::optional<std::string> HeadphoneProfileDSP::profileId() const {
  const MutexLock editing(_editing);
  return _profileId;
}

std::optional<std::string> HeadphoneProfileDSP::profileModel() const {
  const MutexLock editing(_editing);
  return _profileModel;
}

std::vector<int> HeadphoneProfileDSP::unusableFilters() const {
  const MutexLock editing(_editing);
  FilterFormat format;
  {
    const RenderLockHold hold(_lock);
    format = _current;
  }
  std::vector<int> unusable;
  if (!format.isKnown()) return unusable;
  for (std::size_t i = 0; i < _currentFilters.size(); ++i) {
    if (!_currentFilters[i].design(format.sampleRate)) unusable.push_back(static_cast<int>(i));
  }
  return unusable;
}

void HeadphoneProfileDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                                  double sampleRate) noexcept {
  const FilterFormat format{sampleRate, buffers.bufferCount};
  if (!isEnabled() || frameCount < 1) return;
  if (format.channels < 1 || format.channels > kMaxFilterChannels) return;
  if (!_lock.tryLock()) return;
  const auto frames = static_cast<std::size_t>(frameCount);
  ChannelPointers channels;
  if (!_hasProfile) {
    // Nothing to correct.
  } else if (!_current.fits(format) || _needsRebuild) {
    _current = format;
    _needsRebuild = true;
  } else if (channelsOf(buffers, channels)) {
    for (std::size_t i = 0; i < format.channels; ++i) {
      vector::multiplyByScalar(channels[i], _preampGain, channels[i], frames);
    }
    if (_biquadSetup) _biquadSetup->process(channels.data(), frames);
  }
  _lock.unlock();
}

}  // namespace velorin
