#include "engine/resampling/ResampleStage.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

#include "platform/vector/Vector.h"

namespace velorin {
namespace {

/// Frames of the slower side that fill the filter, with room to spare.
constexpr double kFilterFrames = 4096;

}  // namespace

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
  return count(frames, produced);
}

std::uint32_t ResampleStage::drain() noexcept {
  std::uint32_t produced = 0;
  for (std::uint32_t i = 0; i < _resampler->channels(); ++i) {
    const auto tail = _resampler->drain(i, chunk());
    produced = std::min(chunk(), static_cast<std::uint32_t>(tail.size()));
    convertChannel(i, tail.data(), produced);
  }
  return count(0, produced);
}

std::uint32_t ResampleStage::count(std::uint32_t framesIn, std::uint32_t produced) noexcept {
  _framesIn += framesIn;
  _framesOut += produced;
  const auto dropped = static_cast<std::uint32_t>(std::min<std::int64_t>(_toDrop, produced));
  if (dropped == 0) return produced;
  _toDrop -= dropped;
  const std::size_t size = _clientSampleSize;
  for (std::uint32_t i = 0; i < _resampler->channels(); ++i) {
    auto* samples = _output.list().channel<std::byte>(i);
    std::memmove(samples, samples + dropped * size, (produced - dropped) * size);
  }
  return produced - dropped;
}

void ResampleStage::clear() noexcept {
  _resampler->clear();
  _framesIn = _framesOut = _toDrop = 0;
}

std::int64_t ResampleStage::resumeAt(const Progress& progress, std::int64_t available) noexcept {
  clear();
  const double ratio = targetRate() / sourceRate();
  const double outputCentre = static_cast<double>(progress.framesOut) / ratio;
  const double filter = kFilterFrames * std::max(1.0, 1 / ratio);
  const std::int64_t earliest = std::max<std::int64_t>(0, progress.framesIn - available);
  std::int64_t first = std::max(static_cast<std::int64_t>(outputCentre - filter), earliest);
  // Only here do both streams have a frame at the same instant: where their rates' ratio starts
  // anew.
  const std::int64_t source = std::llround(sourceRate());
  const std::int64_t step = source / std::gcd(source, std::llround(targetRate()));
  first = first / step * step + (first / step * step < earliest ? step : 0);
  first = std::min(first, progress.framesIn);
  _toDrop = std::max<std::int64_t>(
      0, progress.framesOut - std::llround(static_cast<double>(first) * ratio));
  return progress.framesIn - first;
}

std::int64_t ResampleStage::framesOwed() const noexcept {
  const auto due =
      std::llround(static_cast<long double>(_framesIn) * static_cast<long double>(targetRate()) /
                   static_cast<long double>(sourceRate()));
  return std::max<std::int64_t>(0, due - _framesOut - _toDrop);
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
