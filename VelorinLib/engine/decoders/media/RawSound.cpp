#include "engine/decoders/media/RawSound.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <string_view>

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/intreadwrite.h>
}

#include "engine/decoders/media/MediaKinds.h"

namespace velorin::media {
namespace {

/// Of a packet: few calls to the system, and still in the processor's second cache.
constexpr std::int64_t kPacketBytes = 64 * 1024;

constexpr std::uint64_t kUnknown = std::numeric_limits<std::uint64_t>::max();

/// The bytes of sound by the header of the chunk in which they lie; kUnknown where there is none
/// of the usual form, or one that leaves the length open.
std::uint64_t bytesOfChunk(MediaBytes& bytes, std::string_view container, std::uint64_t begin) {
  constexpr std::uint64_t kHeaderBytes = 24;
  std::array<std::byte, kHeaderBytes> header{};
  if (begin < kHeaderBytes || bytes.read(begin - kHeaderBytes, header) != kHeaderBytes) {
    return kUnknown;
  }
  const std::byte* const end = header.data() + kHeaderBytes;
  const auto isNamed = [&](int back, const char* name) {
    return std::memcmp(end - back, name, 4) == 0;
  };
  if (container == "wav" && isNamed(8, "data")) {
    // Zero is that of a file whose writer never came back; all ones that of RF64.
    const std::uint32_t size = AV_RL32(end - 4);
    return size == 0 || size == 0xFFFF'FFFF ? kUnknown : size;
  }
  // The GUID of 16 bytes; the size counts this header too.
  if (container == "w64" && isNamed(24, "data")) {
    const std::uint64_t size = AV_RL64(end - 8);
    return size > kHeaderBytes ? size - kHeaderBytes : kUnknown;
  }
  // The size counts two words behind it, offset and block size.
  if (container == "aiff" && isNamed(16, "SSND") && AV_RB32(end - 8) == 0) {
    const std::uint32_t size = AV_RB32(end - 12);
    return size > 8 ? size - 8 : kUnknown;
  }
  // The size, all ones for to the end of the file, counts the word of the edit count.
  if (container == "caf" && isNamed(16, "data")) {
    const std::uint64_t size = AV_RB64(end - 12);
    return size > 4 && size != kUnknown ? size - 4 : kUnknown;
  }
  return kUnknown;
}

}  // namespace

std::optional<RawSound> RawSound::find(MediaBytes& bytes, const AVInputFormat& container,
                                       const AVCodecParameters& codec, std::uint64_t begin,
                                       std::int64_t framesTold) {
  constexpr std::array<std::string_view, 5> kContainers = {"wav", "w64", "aiff", "caf", "au"};
  const std::string_view name = container.name;
  const int bits = av_get_bits_per_sample(codec.codec_id);
  const int frameBytes = codec.ch_layout.nb_channels * bits / 8;
  if (std::ranges::find(kContainers, name) == kContainers.end() || !isPCM(codec.codec_id) ||
      begin == 0 || bits <= 0 || bits % 8 != 0 || frameBytes <= 0 || frameBytes > kPacketBytes ||
      codec.block_align != frameBytes || std::strstr(avcodec_get_name(codec.codec_id), "planar")) {
    return std::nullopt;
  }
  RawSound sound;
  sound._begin = begin;
  sound._frameBytes = frameBytes;
  const std::uint64_t there = bytes.size() - std::min(begin, bytes.size());
  sound._frames = static_cast<std::int64_t>(std::min(there, bytesOfChunk(bytes, name, begin))) /
                  sound._frameBytes;
  if (framesTold > 0) sound._frames = std::min(sound._frames, framesTold);
  sound._pool.reset(av_buffer_pool_init(kPacketBytes + AV_INPUT_BUFFER_PADDING_SIZE, nullptr));
  if (!sound._pool) return std::nullopt;
  return sound;
}

bool RawSound::read(MediaBytes& bytes, AVPacket& packet) noexcept {
  const std::int64_t wanted = std::min(kPacketBytes / _frameBytes, _frames - _next);
  if (wanted <= 0) return false;
  packet.buf = av_buffer_pool_get(_pool.get());
  if (!packet.buf) return false;
  const std::size_t got =
      bytes.read(_begin + static_cast<std::uint64_t>(_next * _frameBytes),
                 std::as_writable_bytes(
                     std::span(packet.buf->data, static_cast<std::size_t>(wanted * _frameBytes))));
  const std::int64_t frames = static_cast<std::int64_t>(got) / _frameBytes;
  packet.data = packet.buf->data;
  packet.size = static_cast<int>(frames * _frameBytes);
  packet.pts = _next;
  _next += frames;
  return frames > 0;
}

}  // namespace velorin::media
