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

void SpatialAudioDSP::setAzimuth(double degrees) {
  _azimuth.set(degrees);
  _shadow.redesign([this](double rate) { return design(rate); });
}

void SpatialAudioDSP::sampleRateChanged(double sampleRate) {
  _shadow.designFor(sampleRate, [this](double rate) { return design(rate); });
}

std::unique_ptr<BiquadCascade> SpatialAudioDSP::design(double sampleRate) const {
  // 18 kHz straight ahead, 2 kHz from behind.
  const double turned = std::fabs(static_cast<double>(azimuth())) / -180.0;
  const double corner = std::max(500.0, 18000.0 + turned * 16000.0);
  std::vector<BiquadCoefficients> sections;
  if (biquad::isUsable(sampleRate, corner)) {
    sections.push_back(biquad::lowPass(sampleRate, corner, 0.707));
  }
  return std::make_unique<BiquadCascade>(sections, 2);
}

void SpatialAudioDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                              double sampleRate) noexcept {
  const StereoPair pair(buffers);
  if (frameCount < 1 || !pair.isComplete()) return;
  const auto shadow = _shadow.use(sampleRate);
  if (!shadow) return;
  const auto n = static_cast<std::size_t>(std::min(frameCount, kMaxFrames));

  const float angle = azimuth();
  const double itd = sampleRate * (std::sin(angle * std::numbers::pi / 180) * kLargestDelay);
  // The far ear falls to one half at 180 degrees.
  const float far = 1 + (std::fabs(angle) / -180.0f) * 0.5f;
  const float near = 1 / distance();
  position(_delayL, ear(std::max(itd, 0.0), angle > 0 ? far : 1.0f, near), pair.left, n);
  position(_delayR, ear(std::max(-itd, 0.0), angle < 0 ? far : 1.0f, near), pair.right, n);

  if (angle > kShadowFrom) shadow->processChannel(0, pair.left, pair.left, n);
  if (angle < -kShadowFrom) shadow->processChannel(1, pair.right, pair.right, n);

  const float room = roomSize();
  if (room > kRoomFrom) reflect(pair.left, pair.right, n, room, sampleRate);
}

SpatialAudioDSP::Ear SpatialAudioDSP::ear(double samples, float gain, float distance) noexcept {
  const auto whole = static_cast<std::size_t>(samples);
  return {{whole % kDelaySize, (whole + 1) % kDelaySize,
           static_cast<float>(samples - static_cast<double>(whole))},
          gain,
          distance};
}

void SpatialAudioDSP::position(DelayLine<kDelaySize>& line, const Ear& ear, float* data,
                               std::size_t n) noexcept {
  constexpr std::size_t kPiece = DelayLine<kDelaySize>::kMaxRun;
  for (std::size_t from = 0; from < n; from += kPiece) {
    const std::size_t count = std::min(kPiece, n - from);
    float* const piece = data + from;
    ear.delay.read(line.append(piece, count), piece, count);
    if (ear.gain != 1) vector::multiplyByScalar(piece, ear.gain, piece, count);
    if (ear.distance != 1) vector::multiplyByScalar(piece, ear.distance, piece, count);
  }
}

/// Each ear hears the other side: the left after 27 ms, the right after 15 ms, times the room.
void SpatialAudioDSP::reflect(float* left, float* right, std::size_t n, float room,
                              double sampleRate) noexcept {
  // A tap that is longer than the ring, 27 ms above 151 kHz, wraps within it.
  const auto t1 = static_cast<std::size_t>(sampleRate * (room * 0.015)) % kReflectionSize;
  const auto t2 = static_cast<std::size_t>(sampleRate * (room * 0.027)) % kReflectionSize;
  const float g = room * 0.25f;
  constexpr std::size_t kPiece = DelayLine<kReflectionSize>::kMaxRun;
  for (std::size_t from = 0; from < n; from += kPiece) {
    const std::size_t count = std::min(kPiece, n - from);
    const float* const a = _reflectionL.append(left + from, count);
    const float* const b = _reflectionR.append(right + from, count);
    vector::multiplyAdd(b - t2, g, left + from, count);
    vector::multiplyAdd(a - t1, g, right + from, count);
  }
}

std::vector<EffectParameter> SpatialAudioDSP::parameters() {
  return {{.name = "azimuth",
           .minimum = -180,
           .maximum = 180,
           .defaultValue = 0,
           .unit = "°",
           .get = [this] { return azimuth(); },
           .set = [this](double value) { setAzimuth(value); }},
          {.name = "roomSize",
           .minimum = 0,
           .maximum = 1,
           .defaultValue = 0.3,
           .get = [this] { return roomSize(); },
           .set = [this](double value) { setRoomSize(value); }},
          {.name = "distance",
           .minimum = 0.5,
           .maximum = 5,
           .defaultValue = 1,
           .unit = "m",
           .get = [this] { return distance(); },
           .set = [this](double value) { setDistance(value); }}};
}

}  // namespace velorin
