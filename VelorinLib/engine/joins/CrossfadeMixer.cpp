#include "engine/joins/CrossfadeMixer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "platform/vector/Vector.h"

namespace velorin {
namespace {

template <class Sample, class Real>
Sample truncated(Real value) noexcept {
  using Limits = std::numeric_limits<Sample>;
  return static_cast<Sample>(
      std::clamp(value, static_cast<Real>(Limits::min()), static_cast<Real>(Limits::max())));
}

template <class Sample, class Real>
void blend(Sample* newer, const Real* newerGain, const Sample* older, const Real* olderGain,
           std::uint32_t count) noexcept {
  for (std::uint32_t i = 0; i < count; ++i) {
    newer[i] = truncated<Sample>(newerGain[i] * static_cast<Real>(newer[i]) +
                                 olderGain[i] * static_cast<Real>(older[i]));
  }
}

template <class Sample, class Real>
void scale(const Sample* in, const Real* gain, Sample* out, std::uint32_t count) noexcept {
  for (std::uint32_t i = 0; i < count; ++i) {
    out[i] = truncated<Sample>(gain[i] * static_cast<Real>(in[i]));
  }
}

// Float has its operations ready-made.
void blend(float* newer, const float* newerGain, const float* older, const float* olderGain,
           std::uint32_t count) noexcept {
  std::array<float, CrossfadeMixer::kRun> share;
  vector::multiply(newer, newerGain, newer, count);
  vector::multiply(older, olderGain, share.data(), count);
  vector::add(newer, share.data(), newer, count);
}

void scale(const float* in, const float* gain, float* out, std::uint32_t count) noexcept {
  vector::multiply(in, gain, out, count);
}

void takeRoots(float* values, std::uint32_t count) noexcept {
  vector::squareRoot(values, values, count);
}

void takeRoots(double* values, std::uint32_t count) noexcept {
  std::transform(values, values + count, values, [](double t) { return std::sqrt(t); });
}

}  // namespace

CrossfadeMixer::CrossfadeMixer(const StreamFormat& clientFormat, std::int64_t framesTotal) noexcept
    : _channels(clientFormat.channelsPerFrame),
      _sampleSize(clientFormat.bytesPerFrame),
      _isFloat(clientFormat.isFloat()),
      _framesTotal(std::max<std::int64_t>(0, framesTotal)) {}

std::uint32_t CrossfadeMixer::mix(AudioBufferList& newer, std::uint32_t newerFrames,
                                  const AudioBufferList& older,
                                  std::uint32_t olderFrames) noexcept {
  if (_isFloat) {
    mixAs<float, float>(newer, newerFrames, older, olderFrames);
  } else if (_sampleSize == 2) {
    mixAs<std::int16_t, float>(newer, newerFrames, older, olderFrames);
  } else {
    mixAs<std::int32_t, double>(newer, newerFrames, older, olderFrames);
  }
  const std::uint32_t frames = std::max(newerFrames, olderFrames);
  for (std::uint32_t c = 0; c < _channels; ++c) newer.buffers[c].byteSize = frames * _sampleSize;
  _framesWritten += frames;
  return frames;
}

template <class Real>
void CrossfadeMixer::findGains(std::int64_t from, std::uint32_t count, Real* newer,
                               Real* older) const noexcept {
  // Both from whole frame numbers: 1 - t would lose the end of the old side to rounding.
  const auto total = static_cast<double>(_framesTotal);
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto gone = static_cast<double>(std::min<std::int64_t>(from + i, _framesTotal));
    newer[i] = _framesTotal > 0 ? static_cast<Real>(gone / total) : Real{1};
    older[i] = _framesTotal > 0 ? static_cast<Real>((total - gone) / total) : Real{0};
  }
  takeRoots(newer, count);
  takeRoots(older, count);
}

template <class Sample, class Real>
void CrossfadeMixer::mixAs(const AudioBufferList& newer, std::uint32_t newerFrames,
                           const AudioBufferList& older, std::uint32_t olderFrames) noexcept {
  std::array<Real, kRun> newerGain;
  std::array<Real, kRun> olderGain;
  const std::uint32_t frames = std::max(newerFrames, olderFrames);
  for (std::uint32_t at = 0; at < frames; at += kRun) {
    const std::uint32_t run = std::min(kRun, frames - at);
    // Of this run the first `both` frames have two sides, the rest one.
    const std::uint32_t ofNewer = newerFrames - std::min(newerFrames, at);
    const std::uint32_t ofOlder = olderFrames - std::min(olderFrames, at);
    const std::uint32_t both = std::min({run, ofNewer, ofOlder});
    findGains(_framesWritten + at, run, newerGain.data(), olderGain.data());
    for (std::uint32_t c = 0; c < _channels; ++c) {
      auto* target = newer.channel<Sample>(c) + at;
      const auto* old = olderFrames > 0 ? older.channel<Sample>(c) + at : nullptr;
      blend(target, newerGain.data(), old, olderGain.data(), both);
      if (ofNewer > both) {
        scale(target + both, newerGain.data() + both, target + both, run - both);
      } else {
        scale(old + both, olderGain.data() + both, target + both, run - both);
      }
    }
  }
}

}  // namespace velorin
