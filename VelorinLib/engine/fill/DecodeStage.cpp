#include "engine/fill/DecodeStage.h"

#include "platform/vector/Vector.h"

namespace velorin {
namespace {

std::uint32_t outputCapacity(SoxrResampler* resampler) {
  return resampler == nullptr
             ? 1
             : static_cast<std::uint32_t>(resampler->maximumOutput(DecodeStage::kBlockFrames));
}

}  // namespace

DecodeStage::DecodeStage(FileDecoder& decoder, SoxrResampler* resampler,
                         const StreamFormat& clientFormat, bool isIntegerOutput,
                         AudioRingBuffer& ring)
    : _decoder(decoder),
      _resampler(resampler),
      _ring(ring),
      _isIntegerOutput(isIntegerOutput),
      _channels(clientFormat.channelsPerFrame),
      _clientSampleSize(clientFormat.bytesPerFrame),
      // The resampler takes float, whatever the client format.
      _decoded(_channels, kBlockFrames, resampler != nullptr ? 4 : _clientSampleSize),
      _output(_channels, outputCapacity(resampler), _clientSampleSize),
      _scratch(resampler != nullptr ? kBlockFrames : 0) {}

std::uint32_t DecodeStage::chunk() const noexcept {
  return _resampler != nullptr ? _output.capacity() : kBlockFrames;
}

DecodeStage::Outcome DecodeStage::step(std::uint32_t wanted) noexcept {
  const bool asFloat = _resampler != nullptr || !_isIntegerOutput;
  _decoded.setFrames(kBlockFrames);
  const DecodeResult result =
      _decoder.read(_decoded.list(), std::min(wanted, kBlockFrames), asFloat);
  if (result.status != 0) return Outcome::failed;
  if (result.frames == 0) return Outcome::endOfStream;

  if (_resampler == nullptr) {
    _decoded.setFrames(result.frames);
    _framesWritten += _ring.write(_decoded.list(), result.frames);
    return Outcome::wrote;
  }

  // Channels are independent streams of the same length, so all give the same count.
  std::uint32_t produced = 0;
  for (std::uint32_t i = 0; i < _channels; ++i) {
    vector::floatToDouble(_decoded.list().channel<float>(i), _scratch.data(), result.frames);
    const auto resampled = _resampler->process(i, _scratch.data(), result.frames);
    produced = std::min(_output.capacity(), static_cast<std::uint32_t>(resampled.size()));
    convertChannel(i, resampled.data(), produced);
  }
  if (produced > 0) _framesWritten += _ring.write(_output.list(), produced);
  return Outcome::wrote;
}

bool DecodeStage::drainStep() noexcept {
  if (_resampler == nullptr) return false;
  std::uint32_t produced = 0;
  for (std::uint32_t i = 0; i < _channels; ++i) {
    const auto tail = _resampler->drain(i, _output.capacity());
    produced = std::min(_output.capacity(), static_cast<std::uint32_t>(tail.size()));
    convertChannel(i, tail.data(), produced);
  }
  if (produced > 0) _framesWritten += _ring.write(_output.list(), produced);
  return produced > 0;
}

void DecodeStage::reset() noexcept {
  if (_resampler != nullptr) _resampler->clear();
}

void DecodeStage::convertChannel(std::uint32_t channel, const double* samples,
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
