#include "engine/dsd/DSDDecoder.h"

#include <algorithm>
#include <cstring>

namespace velorin {

DSDDecoder::Made DSDDecoder::create(std::unique_ptr<ReadableFile> file, DSDFormat format) {
  auto encoder = DoPEncoder::create(std::move(file), format);
  if (!encoder) return encoder.error();
  return std::unique_ptr<DSDDecoder>(new DSDDecoder(std::move(encoder).value()));
}

DSDDecoder::DSDDecoder(std::unique_ptr<DoPEncoder> encoder) : _encoder(std::move(encoder)) {
  prepareDSDtoPCM(1);
}

void DSDDecoder::prepareDSDtoPCM(int decimation) {
  _encoder->prepareDSDtoPCM(decimation);
  _encoder->seekToByte(0);
  _currentFrame = 0;
}

double DSDDecoder::sampleRate() const noexcept {
  return rateAfter8To1(dsdRate()) / static_cast<double>(_encoder->bytesPerFrame());
}

std::int64_t DSDDecoder::totalFrames() const noexcept {
  return static_cast<std::int64_t>(_encoder->layout().bytesPerChannel / _encoder->bytesPerFrame());
}

DecoderInfo DSDDecoder::info() const {
  const bool isDSF = _encoder->layout().format == DSDFormat::dsf;
  return {.name = "DSD Decoder",
          .library = "dsd2pcm",
          .isLossless = true,
          .formatTag = isDSF ? "DSF" : "DFF"};
}

DecodeResult DSDDecoder::read(const AudioBufferList& target, std::uint32_t frames,
                              bool asFloat) noexcept {
  if (!asFloat) return {.status = -1, .frames = 0};
  std::array<float*, kMaxChannels> planes{};
  for (std::uint32_t i = 0; i < target.bufferCount; ++i) {
    frames = std::min<std::uint32_t>(frames, target.buffers[i].byteSize / sizeof(float));
    planes[i] = target.channel<float>(i);
  }
  const std::uint32_t both = std::min(target.bufferCount, channels());
  const std::size_t filled = _encoder->readPCMFrames(std::span(planes).first(both), frames);
  for (std::uint32_t i = both; i < target.bufferCount; ++i) {
    std::memset(planes[i], 0, filled * sizeof(float));
  }
  _currentFrame += static_cast<std::int64_t>(filled);
  return {.status = 0, .frames = static_cast<std::uint32_t>(filled)};
}

bool DSDDecoder::seek(std::int64_t frame) noexcept {
  const std::int64_t wanted = std::max<std::int64_t>(frame, 0);
  if (wanted >= totalFrames()) return false;
  if (standAt(wanted)) {
    _currentFrame = wanted;
    return true;
  }
  // A file that was cut short since: on from where we were.
  standAt(_currentFrame);
  return false;
}

// The bytes before the frame go through the filters first, so that these hold what they would.
bool DSDDecoder::standAt(std::int64_t frame) noexcept {
  const std::uint64_t perFrame = _encoder->bytesPerFrame();
  const std::uint64_t memory = DSDConverter::memoryBytes(_encoder->stages());
  const auto before = std::min<std::uint64_t>(frame, (memory + perFrame - 1) / perFrame);
  _encoder->seekToByte((static_cast<std::uint64_t>(frame) - before) * perFrame);
  return _encoder->readPCMFrames({}, before) == before;
}

void DSDDecoder::continueFrom(const DSDSource& before) noexcept {
  const auto* const other = dynamic_cast<const DSDDecoder*>(&before);
  if (other != nullptr && other->sampleRate() == sampleRate() && _currentFrame == 0) {
    _encoder->continueFrom(*other->_encoder);
  }
}

}  // namespace velorin
