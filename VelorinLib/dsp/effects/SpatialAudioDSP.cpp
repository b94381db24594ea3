#include "dsp/effects/SpatialAudioDSP.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/effects/Level.h"

namespace velorin {
namespace {

constexpr double kLargestDelay = 0.00065;  // seconds between the ears
constexpr float kShadowFrom = 5;           // degrees
constexpr float kRoomFrom = 0.01f;

}  // namespace

void SpatialAudioDSP::setAzimuth(float degrees) {
  _azimuth.store(degrees, std::memory_order_relaxed);
  sampleRateChanged(_shadow.rate());
}

void SpatialAudioDSP::sampleRateChanged(double sampleRate) {
  if (!(sampleRate > 0)) return;
  // 18 kHz straight ahead, 2 kHz from behind.
  const double turned = std::fabs(static_cast<double>(azimuth())) / -180.0;
  const double corner = std::max(500.0, 18000.0 + turned * 16000.0);
  std::vector<BiquadCoefficients> sections;
  if (biquad::isUsable(sampleRate, corner)) {
    sections.push_back(biquad::lowPass(sampleRate, corner, 0.707));
  }
  _shadow.install(std::make_unique<BiquadCascade>(sections, 2), sampleRate);
}

SpatialAudioDSP::Ear SpatialAudioDSP::ear(double delay, float gain) noexcept {
  const auto whole = static_cast<std::size_t>(delay);
  return {whole, static_cast<float>(delay - static_cast<double>(whole)), gain};
}

void SpatialAudioDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                              double sampleRate) noexcept {
  if (frameCount < 1 || buffers.bufferCount < 2 || !_shadow.fits(sampleRate)) return;
  const auto shadow = _shadow.tryUse();
  if (!shadow) return;
  const StereoPair pair(buffers);
  if (!pair.isComplete()) return;
  const auto n = static_cast<std::size_t>(std::min(frameCount, kMaxFrames));
  const float angle = azimuth();
  position(pair.left, pair.right, n, angle, sampleRate);
  if (angle > kShadowFrom) shadow->processChannel(0, pair.left, pair.left, n);
  if (angle < -kShadowFrom) shadow->processChannel(1, pair.right, pair.right, n);
  if (roomSize() > kRoomFrom) reflect(pair.left, pair.right, n, sampleRate);
}

void SpatialAudioDSP::position(float* left, float* right, std::size_t n, float azimuth,
                               double sampleRate) noexcept {
  const double itd = sampleRate * (std::sin(azimuth * std::numbers::pi / 180) * kLargestDelay);
  // The far ear falls to one half at 180 degrees.
  const float far = 1 + (std::fabs(azimuth) / -180.0f) * 0.5f;
  const Ear l = ear(std::max(itd, 0.0), azimuth > 0 ? far : 1.0f);
  const Ear r = ear(std::max(-itd, 0.0), azimuth < 0 ? far : 1.0f);
  const float near = 1 / std::max(distance(), 0.5f);

  constexpr std::size_t kMask = kDelaySize - 1;
  std::size_t at = _writeIndex;
  const auto delayed = [&](const std::array<float, kDelaySize>& ring, const Ear& ear) {
    const std::size_t from = (at - ear.whole) & kMask;
    return near *
           (ear.gain * ((1 - ear.fraction) * ring[from] + ear.fraction * ring[(from - 1) & kMask]));
  };
  for (std::size_t i = 0; i < n; ++i) {
    _delayBufL[at] = left[i];
    _delayBufR[at] = right[i];
    left[i] = delayed(_delayBufL, l);
    right[i] = delayed(_delayBufR, r);
    at = (at + 1) & kMask;
  }
  _writeIndex = at;
}

/// Each ear hears the other side: the left after 27 ms, the right after 15 ms, times the room.
void SpatialAudioDSP::reflect(float* left, float* right, std::size_t n,
                              double sampleRate) noexcept {
  const float room = roomSize();
  const auto t1 = static_cast<std::size_t>(sampleRate * (room * 0.015));
  const auto t2 = static_cast<std::size_t>(sampleRate * (room * 0.027));
  const float g = room * 0.25f;
  constexpr std::size_t kMask = kReflectionSize - 1;
  std::size_t at = _reflWriteIndex;
  for (std::size_t i = 0; i < n; ++i) {
    _reflBufL[at] = left[i];
    _reflBufR[at] = right[i];
    // A tap longer than the ring reads within it.
    const float a = _reflBufL[(at - t1) & kMask];
    const float b = _reflBufR[(at - t2) & kMask];
    left[i] += g * b;
    right[i] += g * a;
    at = (at + 1) & kMask;
  }
  _reflWriteIndex = at;
}

std::vector<EffectParameter> SpatialAudioDSP::parameters() {
  return {{.name = "azimuth",
           .minimum = -180,
           .maximum = 180,
           .defaultValue = 0,
           .unit = "°",
           .get = [this] { return azimuth(); },
           .set = [this](double value) { setAzimuth(static_cast<float>(value)); }},
          {.name = "roomSize",
           .minimum = 0,
           .maximum = 1,
           .defaultValue = 0.3,
           .get = [this] { return roomSize(); },
           .set = [this](double value) { setRoomSize(static_cast<float>(value)); }},
          {.name = "distance",
           .minimum = 0.5,
           .maximum = 5,
           .defaultValue = 1,
           .unit = "m",
           .get = [this] { return distance(); },
           .set = [this](double value) { setDistance(static_cast<float>(value)); }}};
}

}  // namespace velorin
