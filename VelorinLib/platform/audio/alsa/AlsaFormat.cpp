#include "platform/audio/alsa/AlsaFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>

#include "platform/audio/InputFormat.h"

namespace velorin {
namespace {

using vector::PCMWord;

static_assert(std::endian::native == std::endian::little, "the words written are little-endian");

constexpr std::array kWords = {PCMWord::int16, PCMWord::int24Packed, PCMWord::int24Low,
                               PCMWord::int32, PCMWord::float32};

constexpr std::array kOrder16 = {PCMWord::int16, PCMWord::int24Packed, PCMWord::int24Low,
                                 PCMWord::int32};
constexpr std::array kOrder24 = {PCMWord::int32, PCMWord::int24Packed, PCMWord::int24Low};
constexpr std::array kOrder32 = {PCMWord::int32};
constexpr std::array kOrderFloat = {PCMWord::float32, PCMWord::int32, PCMWord::int24Packed,
                                    PCMWord::int24Low, PCMWord::int16};

std::span<const PCMWord> orderFor(const StreamFormat& stream) {
  if (stream.isFloat()) return kOrderFloat;
  switch (significantBits(stream)) {
    case 16:
      return kOrder16;
    case 24:
      return kOrder24;
    default:
      return kOrder32;
  }
}

template <class Sample>
void pack(const AudioBufferList& planes, const void* silence, const DeviceLayout& layout,
          std::size_t frames, std::byte* out) noexcept {
  std::array<const Sample*, kMaxChannels> sources;
  for (std::uint32_t c = 0; c < layout.channels; ++c) {
    const bool isMonoCopy = planes.bufferCount == 1 && c == 1;
    if (c < planes.bufferCount) {
      sources[c] = planes.channel<Sample>(c);
    } else {
      sources[c] = isMonoCopy ? planes.channel<Sample>(0) : static_cast<const Sample*>(silence);
    }
  }
  if (layout.interleaved) {
    vector::interleave(sources.data(), layout.channels, frames, layout.word, out);
    return;
  }
  for (std::uint32_t c = 0; c < layout.channels; ++c) {
    vector::interleave(&sources[c], 1, frames, layout.word, out);
    out += frames * vector::bytesPerWord(layout.word);
  }
}

}  // namespace

AudioStatus chooseAlsaFormat(const StreamFormat& stream, std::span<const AlsaFormatOffer> offers,
                             AlsaFormatChoice& choice) {
  const std::uint32_t wanted = significantBits(stream);
  std::uint32_t most = 0;
  for (const PCMWord word : orderFor(stream)) {
    const auto offer = std::ranges::find(offers, word, &AlsaFormatOffer::word);
    if (offer == offers.end()) continue;
    const std::uint32_t bits = std::min(offer->significantBits, wanted);
    if (stream.isInteger() && bits < wanted) {
      most = std::max(most, bits);
      continue;
    }
    choice = {word, word == PCMWord::float32 ? 32 : bits,
              stream.isFloat() && word != PCMWord::float32};
    return AudioStatus::success();
  }
  if (most == 0) {
    for (const AlsaFormatOffer& offer : offers) {
      if (offer.word != PCMWord::float32) most = std::max(most, offer.significantBits);
    }
  }
  return AudioStatus::failure(
      -EINVAL,
      most > 0 && most < wanted
          ? fmt::format("would lose bits: the stream has {}, the device takes {}", wanted, most)
          : fmt::format("the device takes no {}-bit {} samples", wanted,
                        stream.isFloat() ? "float" : "integer"));
}

std::uint32_t chooseAlsaChannels(std::uint32_t streamChannels,
                                 std::span<const std::uint32_t> offered) noexcept {
  std::uint32_t best = 0;
  for (const std::uint32_t count : offered) {
    if (count >= streamChannels && (best == 0 || count < best)) best = count;
  }
  return best;
}

std::span<const PCMWord> alsaWords() noexcept {
  return kWords;
}

snd_pcm_format_t alsaFormatOf(PCMWord word) noexcept {
  switch (word) {
    case PCMWord::int16:
      return SND_PCM_FORMAT_S16_LE;
    case PCMWord::int24Packed:
      return SND_PCM_FORMAT_S24_3LE;
    case PCMWord::int24Low:
      return SND_PCM_FORMAT_S24_LE;
    case PCMWord::int32:
      return SND_PCM_FORMAT_S32_LE;
    case PCMWord::float32:
      return SND_PCM_FORMAT_FLOAT_LE;
  }
  return SND_PCM_FORMAT_UNKNOWN;
}

const char* alsaFormatName(PCMWord word) noexcept {
  return snd_pcm_format_name(alsaFormatOf(word));
}

void packForDevice(const StreamFormat& stream, const AudioBufferList& planes, const void* silence,
                   const DeviceLayout& layout, std::size_t frames, std::byte* out) noexcept {
  if (stream.isFloat()) {
    pack<float>(planes, silence, layout, frames, out);
  } else if (stream.bitsPerChannel == 16) {
    pack<std::int16_t>(planes, silence, layout, frames, out);
  } else {
    pack<std::int32_t>(planes, silence, layout, frames, out);
  }
}

}  // namespace velorin
