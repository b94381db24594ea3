#include "platform/media/StreamHash.h"

#include "platform/media/MediaFile.h"
#include "platform/media/Murmur.h"

namespace velorin {
namespace {

using Bytes = std::span<const std::uint8_t>;

/// The three header packets of Vorbis lie in one block, the lengths of the first two before them
/// in steps of 255. The second holds the comments.
void hashVorbisSetUp(media::Murmur& hash, Bytes block) {
  std::size_t at = 1;
  std::array<std::size_t, 2> lengths{};
  for (std::size_t& length : lengths) {
    while (at < block.size() && block[at] == 255) {
      length += 255;
      ++at;
    }
    if (at >= block.size()) return;
    length += block[at++];
  }
  if (lengths[0] > block.size() - at || lengths[1] > block.size() - at - lengths[0]) return;
  hash.update(std::as_bytes(block.subspan(at, lengths[0])));
  hash.update(std::as_bytes(block.subspan(at + lengths[0] + lengths[1])));
}

}  // namespace

Result<std::string, MediaError> hashStream(const std::string& path) {
  auto file = media::MediaFile::open(path);
  if (!file) return file.error();
  const AVCodecParameters& codec = *file.value()->audio().codecpar;
  media::Murmur hash;
  if (codec.extradata) {
    const Bytes setUp(codec.extradata, static_cast<std::size_t>(codec.extradata_size));
    if (codec.codec_id == AV_CODEC_ID_VORBIS && !setUp.empty() && setUp[0] == 2) {
      hashVorbisSetUp(hash, setUp);
    } else if (codec.codec_id != AV_CODEC_ID_VORBIS) {
      hash.update(std::as_bytes(setUp));
    }
  }
  const media::Packet packet(av_packet_alloc());
  if (!packet) return MediaError{"not enough memory"};
  std::uint64_t bytes = 0;
  while (av_read_frame(&file.value()->context(), packet.get()) >= 0) {
    if (packet->stream_index == file.value()->audio().index) {
      const Bytes data(packet->data, static_cast<std::size_t>(packet->size));
      hash.update(std::as_bytes(data));
      bytes += data.size();
    }
    av_packet_unref(packet.get());
  }
  if (bytes == 0) return MediaError{"there is no sound in the file"};
  return hash.finish();
}

}  // namespace velorin
