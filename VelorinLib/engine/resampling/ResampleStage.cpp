#include "engine/resampling/ResampleStage.h"

#include <algorithm>
#include <cmath>

#include "platform/vector/Vector.h"

namespace velorin {

std::unique_ptr<ResampleStage> ResampleStage::create(double sourceRate,
                                                     const StreamFormat& clientFormat) {
  auto resampler =
      SoxrResampler::create(sourceRate, clientFormat.sampleRate, clientFormat.channelsPerFrame);
  if (!resampler) return nullptr;
  return std::unique_ptr<ResampleStage>(new ResampleStage(std::move(resampler), clientFormat));
}

ResampleStage::ResampleStage(std::unique_ptr<SoxrResampler> resampler,
                             const StreamFormat& clientFormat)
    : _resampler(std::move(resampler)),
      _isIntegerOutput(clientFormat.isInteger()),
      _clientSampleSize(clientFormat.bytesPerFrame),
      _output(clientFormat.channelsPerFrame,
              _resampler->maximumOutput(SoxrResampler::kMaximumInput), _clientSampleSize),
      _scratch(SoxrResampler::kMaximumInput) {}

std::uint32_t ResampleStage::process(const AudioBufferList& input, std::uint32_t frames) noexcept {
  // Channels are independent streams of the same length, so all give the same count.
  std::uint32_t produced = 0;
  for (std::uint32_t i = 0; i < _resampler->channels(); ++i) {
    vector::floatToDouble(input.channel<float>(i), _scratch.data(), frames);
    const auto resampled = _resampler->process(i, _scratch.data(), frames);
    produced = std::min(chunk(), static_cast<std::uint32_t>(resampled.size()));
    convertChannel(i, resampled.data(), produced);
  }
  _framesIn += frames;
  _framesOut += produced;
  return produced;
}

std::uint32_t ResampleStage::drain() noexcept {
  std::uint32_t produced = 0;
  for (std::uint32_t i = 0; i < _resampler->channels(); ++i) {
    const auto tail = _resampler->drain(i, chunk());
    produced = std::min(chunk(), static_cast<std::uint32_t>(tail.size()));
    convertChannel(i, tail.data(), produced);
  }
  _framesOut += produced;
  return produced;
}

void ResampleStage::clear() noexcept {
  _resampler->clear();
  _framesIn = _framesOut = 0;
}

std::int64_t ResampleStage::framesOwed() const noexcept {
  const auto due =
      std::llround(static_cast<long double>(_framesIn) * static_cast<long double>(targetRate()) /
                   static_cast<long double>(sourceRate()));
  return std::max<std::int64_t>(0, due - _framesOut);
}

void ResampleStage::convertChannel(std::uint32_t channel, const double* samples,
                                   std::uint32_t count) noexcept {
  void* target = _output.list().buffers[channel].data;
  if (!_isIntegerOutput) {
    vector::doubleToFloat(samples, static_cast<float*>(target), count);
  } else if (_clientSampleSize == 2) {
    vector::doubleToInt16(samples, static_cast<std::int16_t*>(target), count);
  } else {
    vector::doubleToInt32(samples, static_cast<std::int32_t*>(target), count);
  }
}

}  // namespace velorin
