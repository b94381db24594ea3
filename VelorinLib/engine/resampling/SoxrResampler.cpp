#include "engine/resampling/SoxrResampler.h"

#include <soxr.h>

#include <cmath>

namespace velorin {
namespace {

constexpr double kEqualRates = 0.01;  // Hz
constexpr double kPrecisionBits = 29;
constexpr double kLinearPhase = 50;
constexpr double kPassbandEnd = 0.98;
constexpr double kStopbandBegin = 1.0;
/// The library may hand out what it held back on top of what the ratio gives.
constexpr std::uint32_t kSpareFrames = 4096;

soxr_t makeConverter(double sourceRate, double targetRate) {
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
  soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ | SOXR_LINEAR_PHASE, 0);
  quality.precision = kPrecisionBits;
  quality.phase_response = kLinearPhase;
  quality.passband_end = kPassbandEnd;
  quality.stopband_begin = kStopbandBegin;
  const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
  soxr_error_t error = nullptr;
  soxr_t converter = soxr_create(sourceRate, targetRate, 1, &error, &io, &quality, &runtime);
  if (error != nullptr && converter != nullptr) {
    soxr_delete(converter);
    return nullptr;
  }
  return converter;
}

}  // namespace

SoxrResampler::SoxrResampler(double sourceRate, double targetRate)
    : _sourceRate(sourceRate), _targetRate(targetRate), _output(maximumOutput(kMaximumInput)) {}

SoxrResampler::~SoxrResampler() {
  for (soxr_t converter : _converters) soxr_delete(converter);
}

std::unique_ptr<SoxrResampler> SoxrResampler::create(double sourceRate, double targetRate,
                                                     std::uint32_t channels) {
  if (!(sourceRate > 0) || !(targetRate > 0)) return nullptr;
  if (std::abs(sourceRate - targetRate) <= kEqualRates) return nullptr;
  std::unique_ptr<SoxrResampler> made(new SoxrResampler(sourceRate, targetRate));
  for (std::uint32_t i = 0; i < channels; ++i) {
    soxr_t converter = makeConverter(sourceRate, targetRate);
    if (converter == nullptr) return nullptr;
    made->_converters.push_back(converter);
  }
  return made;
}

std::uint32_t SoxrResampler::maximumOutput(std::uint32_t inputFrames) const noexcept {
  return static_cast<std::uint32_t>(std::ceil(inputFrames * ratio())) + kSpareFrames;
}

std::span<const double> SoxrResampler::process(std::uint32_t channel, const double* input,
                                               std::uint32_t frames) noexcept {
  return run(channel, input, frames, _output.size());
}

std::span<const double> SoxrResampler::drain(std::uint32_t channel,
                                             std::uint32_t maximum) noexcept {
  return run(channel, nullptr, 0, std::min<std::size_t>(maximum, _output.size()));
}

std::span<const double> SoxrResampler::run(std::uint32_t channel, const double* input,
                                           std::uint32_t frames, std::size_t room) noexcept {
  if (channel >= _converters.size()) return {};
  std::size_t taken = 0;
  std::size_t given = 0;
  const soxr_error_t error = soxr_process(_converters[channel], input, frames, &taken,
                                          _output.data(), room, &given);
  if (error != nullptr) return {};
  return {_output.data(), given};
}

void SoxrResampler::clear() noexcept {
  for (soxr_t converter : _converters) soxr_clear(converter);
}

}  // namespace velorin
