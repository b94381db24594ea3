#include "engine/dsd/DoPEncoder.h"

#include <algorithm>
#include <cstring>

namespace velorin {
namespace {

// Bytes of a channel that are converted at a time.
constexpr std::size_t kMostBytes = 8192;

}  // namespace

DoPEncoder::Made DoPEncoder::create(std::unique_ptr<ReadableFile> file, DSDFormat format) {
  if (file == nullptr) return DecoderError{.text = "there is no file to read; open one first"};
  auto layout = parseDSDLayout(*file, format);
  if (!layout) return layout.error();
  return std::unique_ptr<DoPEncoder>(new DoPEncoder(std::move(file), layout.value()));
}

DoPEncoder::DoPEncoder(std::unique_ptr<ReadableFile> file, const DSDLayout& layout)
    : _layout(layout), _reader(std::move(file), layout), _packing(layout.isLeastSignificantFirst) {}

void DoPEncoder::seekDSD(double seconds) noexcept {
  const double end = static_cast<double>(_layout.bytesPerChannel) * 8;
  // Not a number, and what is before the start, is the start.
  const double samples = seconds > 0 ? std::min(seconds * hertz(_layout.rate), end) : 0;
  seekToByte(static_cast<std::uint64_t>(samples) / 8);
}

void DoPEncoder::seekToByte(std::uint64_t position) noexcept {
  _reader.seek(position);
  _packing.reset();
  for (DSDConverter& pipeline : _pipelines) pipeline.reset();
}

void DoPEncoder::prepareDSDtoPCM(int decimation) {
  closeDSDtoPCM();
  _stages = DSDConverter::stagesFor(decimation);
  _unwanted.resize(kMostBytes >> _stages);
  _pipelines.reserve(_layout.channelCount);
  for (std::uint32_t channel = 0; channel < _layout.channelCount; ++channel) {
    _pipelines.emplace_back(decimation, _layout.isLeastSignificantFirst);
  }
}

void DoPEncoder::closeDSDtoPCM() noexcept {
  _pipelines.clear();
}

std::size_t DoPEncoder::readPCMFrames(std::span<float* const> planes, std::size_t frames) noexcept {
  if (_pipelines.empty()) return 0;
  const std::uint64_t left = (_layout.bytesPerChannel - _reader.position()) >> _stages;
  frames = static_cast<std::size_t>(std::min<std::uint64_t>(frames, left));
  std::size_t bytes = 0;
  std::size_t done = 0;
  while (bytes < frames << _stages) {
    const std::size_t count = _reader.fetch(std::min((frames << _stages) - bytes, kMostBytes));
    if (count == 0) break;
    translate(count, planes, done);
    bytes += count;
    done = bytes >> _stages;
  }
  return done;
}

void DoPEncoder::translate(std::size_t bytes, std::span<float* const> planes,
                           std::size_t at) noexcept {
  for (std::uint32_t channel = 0; channel < _layout.channelCount; ++channel) {
    float* const out = channel < planes.size() ? planes[channel] + at : _unwanted.data();
    _pipelines[channel].translate(_reader.channel(channel), bytes, out);
  }
}

void DoPEncoder::continueFrom(const DoPEncoder& before) noexcept {
  const std::size_t both = std::min(_pipelines.size(), before._pipelines.size());
  for (std::size_t i = 0; i < both; ++i) _pipelines[i].continueFrom(before._pipelines[i]);
}

std::span<const std::int32_t> DoPEncoder::readDoPFrames(std::size_t frames) {
  const std::size_t channels = _layout.channelCount;
  const std::uint64_t left = _layout.bytesPerChannel - _reader.position();
  const auto wanted =
      static_cast<std::size_t>(std::min<std::uint64_t>(left, std::min(frames, kMostBytes) * 2));
  _dsdChannelBuffers.resize(std::max(_dsdChannelBuffers.size(), wanted * channels));
  std::size_t filled = 0;
  while (filled < wanted) {
    const std::size_t count = _reader.fetch(wanted - filled);
    if (count == 0) break;
    for (std::uint32_t channel = 0; channel < channels; ++channel) {
      std::memcpy(&_dsdChannelBuffers[channel * wanted + filled], _reader.channel(channel), count);
    }
    filled += count;
  }
  const std::size_t packed = filled / 2;
  _doPBuffer.resize(std::max(_doPBuffer.size(), packed * channels));
  _packing.pack(_dsdChannelBuffers.data(), wanted, channels, packed, _doPBuffer.data());
  return std::span(_doPBuffer).first(packed * channels);
}

std::uint32_t fillDoP(DoPEncoder& encoder, const AudioBufferList& target, std::uint32_t frames) {
  const std::uint32_t channels = encoder.layout().channelCount;
  for (std::uint32_t i = 0; i < target.bufferCount; ++i) {
    frames = std::min<std::uint32_t>(frames, target.buffers[i].byteSize / sizeof(std::int32_t));
  }
  std::uint32_t filled = 0;
  while (filled < frames) {
    const std::span<const std::int32_t> words = encoder.readDoPFrames(frames - filled);
    if (words.empty()) break;
    const std::size_t count = words.size() / channels;
    for (std::uint32_t channel = 0; channel < target.bufferCount; ++channel) {
      std::int32_t* const out = target.channel<std::int32_t>(channel) + filled;
      for (std::size_t i = 0; i < count; ++i) {
        out[i] = channel < channels ? words[i * channels + channel] : 0;
      }
    }
    filled += static_cast<std::uint32_t>(count);
  }
  return filled;
}

}  // namespace velorin
