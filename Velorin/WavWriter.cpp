#include "WavWriter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <string_view>

namespace velorin {
namespace {

static_assert(std::endian::native == std::endian::little, "WAV samples are written as they are");

constexpr std::size_t kStageBytes = std::size_t{1} << 18;
constexpr std::uint16_t kTagPCM = 1;
constexpr std::uint16_t kTagFloat = 3;
constexpr std::uint16_t kTagExtensible = 0xFFFE;
constexpr std::uint32_t kDs64Bytes = 28;
constexpr std::uint64_t kLargestRiff = 0xFFFFFFFF;

/// Speakers of a FLAC file's channels (RFC 9639, section 9.1.3) as a WAVEFORMATEXTENSIBLE mask.
std::uint32_t speakerMask(std::uint32_t channels) {
  constexpr std::array<std::uint32_t, 9> kMasks = {0,    0x4,  0x3,   0x7,  0x33,
                                                   0x37, 0x3F, 0x70F, 0x63F};
  return channels < kMasks.size() ? kMasks[channels] : 0;
}

/// Little-endian fields, one after the other.
class Fields {
 public:
  Fields& id(std::string_view fourCharacters) {
    for (char c : fourCharacters) bytes.push_back(static_cast<std::byte>(c));
    return *this;
  }
  template <class Integer>
  Fields& number(Integer value) {
    for (std::size_t i = 0; i < sizeof(Integer); ++i) {
      bytes.push_back(static_cast<std::byte>(value >> (8 * i)));
    }
    return *this;
  }
  std::vector<std::byte> bytes;
};

std::vector<std::byte> formatChunk(const WavSpec& spec) {
  const bool isFloat = spec.sample == WavSpec::Sample::float32;
  const auto bits = static_cast<std::uint16_t>(spec.sample == WavSpec::Sample::int16 ? 16 : 32);
  const bool extensible = spec.channels > 2 || (!isFloat && bits > 16);
  const std::uint16_t tag = isFloat ? kTagFloat : kTagPCM;
  Fields fields;
  fields.id("fmt ");
  fields.number<std::uint32_t>(extensible ? 40 : isFloat ? 18 : 16);
  fields.number<std::uint16_t>(extensible ? kTagExtensible : tag);
  fields.number(static_cast<std::uint16_t>(spec.channels));
  fields.number<std::uint32_t>(spec.sampleRate);
  fields.number<std::uint32_t>(spec.sampleRate * spec.bytesPerFrame());
  fields.number(static_cast<std::uint16_t>(spec.bytesPerFrame()));
  fields.number<std::uint16_t>(bits);
  if (extensible) {
    fields.number<std::uint16_t>(22).number<std::uint16_t>(bits);
    fields.number<std::uint32_t>(speakerMask(spec.channels));
    // KSDATAFORMAT_SUBTYPE_…: the tag followed by 0000-0010-8000-00AA00389B71.
    fields.number<std::uint32_t>(tag).number<std::uint16_t>(0).number<std::uint16_t>(0x10);
    for (int byte : {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}) {
      fields.number(static_cast<std::uint8_t>(byte));
    }
  } else if (isFloat) {
    fields.number<std::uint16_t>(0);
  }
  return std::move(fields.bytes);
}

template <class Word>
void interleave(const AudioBufferList& list, std::uint32_t channels, std::uint32_t frames,
                std::byte* out) {
  for (std::uint32_t channel = 0; channel < channels; ++channel) {
    const Word* source = list.channel<const Word>(channel);
    for (std::uint32_t frame = 0; frame < frames; ++frame) {
      std::memcpy(out + (std::size_t{frame} * channels + channel) * sizeof(Word), source + frame,
                  sizeof(Word));
    }
  }
}

}  // namespace

WavSpec WavSpec::of(const StreamFormat& format) {
  const Sample sample = format.isFloat()            ? Sample::float32
                        : format.bytesPerFrame <= 2 ? Sample::int16
                                                    : Sample::int32;
  return {sample, format.channelsPerFrame,
          static_cast<std::uint32_t>(std::lround(format.sampleRate))};
}

std::vector<std::byte> wavHeader(const WavSpec& spec, std::uint64_t frames) {
  const std::uint64_t dataBytes = frames * spec.bytesPerFrame();
  const std::vector<std::byte> format = formatChunk(spec);
  const bool hasFact = spec.sample == WavSpec::Sample::float32;
  const std::uint64_t headerBytes = 12 + 8 + kDs64Bytes + format.size() + (hasFact ? 12 : 0) + 8;
  const std::uint64_t riffBytes = headerBytes - 8 + dataBytes;
  const bool large = riffBytes > kLargestRiff;
  const auto size32 = [large](std::uint64_t size) {
    return large ? 0xFFFFFFFFu : static_cast<std::uint32_t>(size);
  };

  Fields fields;
  fields.id(large ? "RF64" : "RIFF").number<std::uint32_t>(size32(riffBytes)).id("WAVE");
  // The room of the 64-bit sizes is kept from the start, so that samples never have to move.
  fields.id(large ? "ds64" : "JUNK").number<std::uint32_t>(kDs64Bytes);
  fields.number<std::uint64_t>(large ? riffBytes : 0).number<std::uint64_t>(large ? dataBytes : 0);
  fields.number<std::uint64_t>(large ? frames : 0).number<std::uint32_t>(0);
  fields.bytes.insert(fields.bytes.end(), format.begin(), format.end());
  if (hasFact) fields.id("fact").number<std::uint32_t>(4).number<std::uint32_t>(size32(frames));
  fields.id("data").number<std::uint32_t>(size32(dataBytes));
  return std::move(fields.bytes);
}

Result<std::unique_ptr<WavWriter>, OutputError> WavWriter::create(const std::filesystem::path& path,
                                                                  const WavSpec& spec) {
  auto file = OutputFile::create(path);
  if (!file) return file.error();
  std::unique_ptr<WavWriter> writer(new WavWriter(std::move(file).value(), spec));
  if (!writer->_file->write(wavHeader(spec, 0))) return writer->error();
  return writer;
}

WavWriter::WavWriter(std::unique_ptr<OutputFile> file, const WavSpec& spec)
    : _file(std::move(file)), _spec(spec) {
  _staged.reserve(kStageBytes);
}

bool WavWriter::append(const AudioBufferList& list, std::uint32_t frames) {
  const std::size_t at = _staged.size();
  _staged.resize(at + std::size_t{frames} * _spec.bytesPerFrame());
  if (_spec.sample == WavSpec::Sample::int16) {
    interleave<std::uint16_t>(list, _spec.channels, frames, _staged.data() + at);
  } else {
    interleave<std::uint32_t>(list, _spec.channels, frames, _staged.data() + at);
  }
  _frames += frames;
  return _staged.size() < kStageBytes || flush();
}

bool WavWriter::appendSilence(std::uint64_t frames) {
  while (frames > 0) {
    const auto some = std::min<std::uint64_t>(frames, 4096);
    _staged.resize(_staged.size() + static_cast<std::size_t>(some * _spec.bytesPerFrame()));
    _frames += some;
    frames -= some;
    if (_staged.size() >= kStageBytes && !flush()) return false;
  }
  return true;
}

bool WavWriter::flush() {
  const bool written = _file->write(_staged);
  _staged.clear();
  return written;
}

bool WavWriter::commit() {
  return flush() && _file->rewrite(0, wavHeader(_spec, _frames)) && _file->commit();
}

}  // namespace velorin
