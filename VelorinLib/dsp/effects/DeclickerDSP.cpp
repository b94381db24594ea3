#include "dsp/effects/DeclickerDSP.h"

#include <algorithm>
#include <cmath>

#include "dsp/filters/RunningMedian.h"
#include "platform/vector/Vector.h"

namespace velorin {
namespace {

constexpr std::size_t kLongestLimit = 128;
constexpr std::size_t kExpandRadius = 1;
constexpr float kFloor = 0.0005f;  // of the threshold, for silence

// Exponential average over a window of 64: 1 - 2/65 and 2/65.
constexpr float kKeep = 0.9692308f;
constexpr float kTake = 0.03076923f;

}  // namespace

DeclickerDSP::DeclickerDSP()
    : DSPEffect(DSPEffectType::declicker),
      _extendedBuf(kMaxFrames + kWindowSize + kHalfWindow),
      _medianBuf(kMaxFrames),
      _deviationBuf(kMaxFrames),
      _rmsBuf(kMaxFrames),
      _repairBuf(kMaxFrames),
      _clickMask(kMaxFrames) {}

void DeclickerDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                           double /*sampleRate*/) noexcept {
  if (frameCount < 1) return;
  const auto n = std::min(static_cast<std::size_t>(frameCount), kMaxFrames);
  const auto limit = std::min(static_cast<std::size_t>(maxClickLength()), kLongestLimit);
  const Settings settings{threshold(), blend(), limit};
  _debugProcessCalls.fetch_add(1, std::memory_order_relaxed);
  for (std::uint32_t i = 0; i < std::min(buffers.bufferCount, 2U); ++i) {
    auto* data = buffers.channel<float>(i);
    if (data != nullptr) processChannel(data, n, i == 0 ? _tailL : _tailR, settings);
  }
  _tailFilled = true;
}

void DeclickerDSP::processChannel(float* data, std::size_t n, Tail& tail,
                                  const Settings& settings) noexcept {
  extend(data, n, tail);
  // A shorter block leaves the tail as it was.
  if (n >= kWindowSize) std::copy_n(data + n - kWindowSize, kWindowSize, tail.begin());
  const std::uint64_t found = detect(data, n, settings.threshold);
  _debugClicksFound.fetch_add(found, std::memory_order_relaxed);
  const bool isWhole = settings.blend >= 0.9999f;
  if (isWhole && found == 0) return;  // as it is
  std::copy_n(data, n, _repairBuf.data());
  repair(data, n, settings.limit);
  if (isWhole) {
    std::copy_n(_repairBuf.data(), n, data);
  } else if (settings.blend > 0.0001f) {
    vector::weightedSum(data, 1 - settings.blend, _repairBuf.data(), settings.blend, data, n);
  }
}

/// The first block has its own first sample in front of it, so that it has no false edge.
void DeclickerDSP::extend(const float* data, std::size_t n, const Tail& tail) noexcept {
  float* out = _extendedBuf.data();
  if (_tailFilled) {
    std::copy_n(tail.begin(), kWindowSize, out);
  } else {
    std::fill_n(out, kWindowSize, data[0]);
  }
  std::copy_n(data, n, out + kWindowSize);
  std::fill_n(out + kWindowSize + n, kHalfWindow, data[n - 1]);
}

std::uint64_t DeclickerDSP::detect(const float* data, std::size_t n, float threshold) noexcept {
  float* median = _medianBuf.data();
  float* level = _rmsBuf.data();
  medianOf21(_extendedBuf.data() + kWindowSize - kHalfWindow, median, n);
  vector::subtract(data, median, _deviationBuf.data(), n);
  vector::absolute(_deviationBuf.data(), _deviationBuf.data(), n);

  // Over the medians: a click does not raise its own threshold.
  vector::square(median, level, n);
  followLevel(n);
  vector::squareRoot(level, level, n);
  vector::multiplyByScalar(level, threshold, level, n);

  std::uint64_t found = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const bool isClick = _deviationBuf[i] > std::max(level[i], kFloor);
    _clickMask[i] = isClick ? 1 : 0;
    found += isClick ? 1 : 0;
  }
  return found;
}

void DeclickerDSP::followLevel(std::size_t n) noexcept {
  // A fading follower would end in denormals, which are slow; far below the floor it is 0.
  constexpr std::size_t kPiece = 256;
  constexpr float kNothing = 1e-30f;
  float* const level = _rmsBuf.data();
  float e = level[0];
  for (std::size_t from = 0; from < n; from += kPiece) {
    if (e < kNothing) e = 0;
    const std::size_t to = std::min(from + kPiece, n);
    for (std::size_t i = from; i < to; ++i) {
      e = e * kKeep + level[i] * kTake;
      level[i] = e;
    }
  }
}

void DeclickerDSP::repair(const float* data, std::size_t n, std::size_t limit) noexcept {
  const auto begin = _clickMask.begin();
  const auto last = begin + static_cast<std::ptrdiff_t>(n);
  for (auto at = std::find(begin, last, 1); at != last; at = std::find(at, last, 1)) {
    const auto start = static_cast<std::size_t>(at - begin);
    at = std::find(at, last, 0);
    const auto end = static_cast<std::size_t>(at - begin);
    const std::size_t from = start - std::min(start, kExpandRadius);
    const std::size_t to = std::min(end + kExpandRadius, n);
    // A longer run is taken for music.
    if (to - from <= limit) repairSpan(data, n, from, to);
  }
}

/// From the last good sample before the span to the first one behind it. The anchors come from the
/// unrepaired signal; of two spans that overlap the later one wins.
void DeclickerDSP::repairSpan(const float* data, std::size_t n, std::size_t start,
                              std::size_t end) noexcept {
  const std::size_t a = start > 0 ? start - 1 : 0;
  const std::size_t b = std::min(end, n - 1);
  const float p0 = data[std::max<std::size_t>(a, 1) - 1];
  const float p1 = data[a];
  const float p2 = data[b];
  const float p3 = data[std::min(b + 1, n - 1)];
  const float c1 = 0.5f * (p2 - p0);
  const float c2 = p0 - 2.5f * p1 + 2 * p2 - 0.5f * p3;
  const float c3 = -0.5f * p0 + 1.5f * p1 - 1.5f * p2 + 0.5f * p3;
  const std::size_t length = end - start;
  for (std::size_t k = 0; k < length; ++k) {
    const float t = static_cast<float>(k + 1) / static_cast<float>(length + 1);
    _repairBuf[start + k] = p1 + c1 * t + c2 * (t * t) + c3 * (t * t * t);
  }
}

std::vector<EffectParameter> DeclickerDSP::parameters() {
  return {
      {.name = "threshold",
       .minimum = 1,
       .maximum = 10,
       .defaultValue = 3,
       .get = [this] { return threshold(); },
       .set = [this](double value) { setThreshold(static_cast<float>(value)); }},
      {.name = "maxClickLength",
       .minimum = 4,
       .maximum = 128,
       .defaultValue = 48,
       .unit = "samples",
       .get = [this] { return maxClickLength(); },
       .set = [this](double value) { setMaxClickLength(static_cast<int>(std::lround(value))); }},
      {.name = "blend",
       .minimum = 0,
       .maximum = 1,
       .defaultValue = 1,
       .get = [this] { return blend(); },
       .set = [this](double value) { setBlend(static_cast<float>(value)); }}};
}

}  // namespace velorin
