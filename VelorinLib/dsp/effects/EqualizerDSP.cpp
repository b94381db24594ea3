#include "dsp/effects/EqualizerDSP.h"

#include <algorithm>
#include <utility>

namespace velorin {

void EqualizerDSP::configure(double sampleRate, std::size_t channelCount) {
  const FilterFormat format{sampleRate, channelCount};
  const MutexLock editing(_editing);
  std::unique_ptr<BiquadCascade> setup = build(format);
  const RenderLockHold hold(_lock);
  _current = format;
  _biquadSetup.swap(setup);
  _needsRebuild = false;
}

void EqualizerDSP::setBands(std::span<const EQBand> bands) {
  std::vector<EQBand> clamped;
  clamped.reserve(bands.size());
  for (const EQBand& band : bands) clamped.push_back(band.clamped());
  const MutexLock editing(_editing);
  replaceBands(std::move(clamped));
}

void EqualizerDSP::updateBand(std::size_t index, std::optional<double> gain,
                              std::optional<double> q,
                              std::optional<EQBand::FilterType> filterType) {
  const MutexLock editing(_editing);
  if (index >= _bands.size()) return;
  std::vector<EQBand> bands = _bands;
  EQBand& band = bands[index];
  band.gain = gain.value_or(band.gain);
  band.q = q.value_or(band.q);
  band.filterType = filterType.value_or(band.filterType);
  band = band.clamped();
  replaceBands(std::move(bands));
}

void EqualizerDSP::resetBands() {
  const MutexLock editing(_editing);
  std::vector<EQBand> bands;
  bands.reserve(_bands.size());
  for (const EQBand& band : _bands) bands.push_back({.frequency = band.frequency});
  replaceBands(std::move(bands));
}

void EqualizerDSP::replaceBands(std::vector<EQBand> bands) {
  _bands = std::move(bands);
  _isFlat.store(std::none_of(_bands.begin(), _bands.end(),
                             [](const EQBand& band) { return band.isActive(); }),
                std::memory_order_relaxed);
  FilterFormat format;
  {
    const RenderLockHold hold(_lock);
    format = _current;
    if (!format.isKnown()) {
      _needsRebuild = true;
      return;
    }
  }
  std::unique_ptr<BiquadCascade> setup = build(format);
  const RenderLockHold hold(_lock);
  _biquadSetup.swap(setup);
  _needsRebuild = !_current.fits(format);
}

std::unique_ptr<BiquadCascade> EqualizerDSP::build(const FilterFormat& format) const {
  if (_bands.size() < kSectionCount) return nullptr;
  std::vector<BiquadCoefficients> sections;
  for (std::size_t i = 0; i < kSectionCount; ++i) {
    if (!_bands[i].isActive()) continue;
    if (const auto section = _bands[i].design(format.sampleRate)) sections.push_back(*section);
  }
  return makeCascade(sections, format);
}

std::vector<EQBand> EqualizerDSP::bands() const {
  const MutexLock editing(_editing);
  return _bands;
}

double EqualizerDSP::peakGain() const {
  const MutexLock editing(_editing);
  const auto highest =
      std::max_element(_bands.begin(), _bands.end(),
                       [](const EQBand& a, const EQBand& b) { return a.gain < b.gain; });
  return highest == _bands.end() ? 0 : highest->gain;
}

std::vector<int> EqualizerDSP::unusableBands() const {
  const MutexLock editing(_editing);
  FilterFormat format;
  {
    const RenderLockHold hold(_lock);
    format = _current;
  }
  std::vector<int> unusable;
  if (!format.isKnown()) return unusable;
  for (std::size_t i = 0; i < std::min(_bands.size(), kSectionCount); ++i) {
    if (!_bands[i].design(format.sampleRate)) unusable.push_back(static_cast<int>(i));
  }
  return unusable;
}

void EqualizerDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                           double sampleRate) noexcept {
  if (!isEnabled() || frameCount < 1 || buffers.bufferCount < 1 || isFlat()) return;
  if (!_lock.tryLock()) return;
  const FilterFormat format{sampleRate, buffers.bufferCount};
  ChannelPointers channels;
  if (!_current.fits(format) || _needsRebuild) {
    _current = format;
    _needsRebuild = true;
  } else if (_biquadSetup && channelsOf(buffers, channels)) {
    _biquadSetup->process(channels.data(), static_cast<std::size_t>(frameCount));
  }
  _lock.unlock();
}

}  // namespace velorin
