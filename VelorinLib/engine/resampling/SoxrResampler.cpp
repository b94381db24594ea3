#include "engine/resampling/SoxrResampler.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <new>

namespace velorin {
namespace {

constexpr double kEqualRates = 0.01;  // Hz
constexpr double kPrecisionBits = 29;
constexpr double kLinearPhase = 50;
constexpr double kPassbandEnd = 0.98;
constexpr double kStopbandBegin = 1.0;

// On top of what the ratio gives: the converter works in blocks of its own, so that output comes
// in bursts. Without room for them it would fall ever further behind what it could give.
constexpr std::uint32_t kSpareFrames = 4096;

soxr_t makeConverter(double sourceRate, double targetRate) {
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
  soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ | SOXR_LINEAR_PHASE, 0);
  quality.precision = kPrecisionBits;
  quality.phase_response = kLinearPhase;
  quality.passband_end = kPassbandEnd;
  quality.stopband_begin = kStopbandBegin;
  const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);  // on the calling thread
  soxr_error_t error = nullptr;
  soxr_t converter = soxr_create(sourceRate, targetRate, 1, &error, &io, &quality, &runtime);
  if (error == nullptr) return converter;
  soxr_delete(converter);
  return nullptr;
}

bool isWorthConverting(double sourceRate, double targetRate) {
  if (!std::isfinite(sourceRate) || !std::isfinite(targetRate)) return false;
  if (sourceRate <= 0 || targetRate <= 0) return false;
  if (std::abs(sourceRate - targetRate) <= kEqualRates) return false;
  return std::max(sourceRate, targetRate) <=
         SoxrResampler::kMaximumRatio * std::min(sourceRate, targetRate);
}

}  // namespace

void SoxrResampler::Free::operator()(soxr* converter) const noexcept {
  soxr_delete(converter);
}

SoxrResampler::~SoxrResampler() = default;

std::unique_ptr<SoxrResampler> SoxrResampler::create(double sourceRate, double targetRate,
                                                     std::uint32_t channels) {
  if (channels == 0 || !isWorthConverting(sourceRate, targetRate)) return nullptr;
  try {
    std::unique_ptr<SoxrResampler> made(new SoxrResampler(sourceRate, targetRate));
    made->_output.resize(made->maximumOutput(kMaximumInput));
    for (std::uint32_t i = 0; i < channels; ++i) {
      Channel channel;
      channel.converter.reset(makeConverter(sourceRate, targetRate));
      if (channel.converter == nullptr) return nullptr;
      made->_channels.push_back(std::move(channel));
    }
    return made;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

std::uint32_t SoxrResampler::maximumOutput(std::uint32_t inputFrames) const noexcept {
  const double given = std::ceil(std::min(inputFrames, kMaximumInput) * ratio());
  return static_cast<std::uint32_t>(given) + kSpareFrames;
}

std::span<const double> SoxrResampler::process(std::uint32_t channel, const double* input,
                                               std::uint32_t frames) noexcept {
  if (channel >= _channels.size() || _channels[channel].isDraining) return {};
  const std::size_t room = maximumOutput(frames);
  std::size_t left = std::min(frames, kMaximumInput);
  std::size_t given = 0;
  // With this much room the library takes all input at once; the loop holds it to that.
  while (left > 0) {
    std::size_t taken = 0;
    std::size_t got = 0;
    if (soxr_process(_channels[channel].converter.get(), input, left, &taken,
                     _output.data() + given, room - given, &got) != nullptr) {
      break;
    }
    given += got;
    input += taken;
    left -= taken;
    if (taken == 0 && got == 0) break;
  }
  return {_output.data(), given};
}

std::span<const double> SoxrResampler::drain(std::uint32_t channel,
                                             std::uint32_t maximum) noexcept {
  if (channel >= _channels.size()) return {};
  _channels[channel].isDraining = true;
  std::size_t got = 0;
  const std::size_t room = std::min<std::size_t>(maximum, _output.size());
  if (soxr_process(_channels[channel].converter.get(), nullptr, 0, nullptr, _output.data(), room,
                   &got) != nullptr) {
    return {};
  }
  return {_output.data(), got};
}

void SoxrResampler::clear() noexcept {
  for (Channel& channel : _channels) {
    soxr_clear(channel.converter.get());
    channel.isDraining = false;
  }
}

}  // namespace velorin
