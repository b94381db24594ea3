#include "platform/media/MediaProbe.h"

#include <limits>

#include "foundation/Text.h"
#include "platform/media/MediaFile.h"

namespace velorin {
namespace {

std::optional<int> ifPositive(std::int64_t value) {
  if (value <= 0 || value > std::numeric_limits<int>::max()) return std::nullopt;
  return static_cast<int>(value);
}

double durationOf(const AVFormatContext& context, const AVStream& stream) {
  if (stream.duration > 0) return static_cast<double>(stream.duration) * av_q2d(stream.time_base);
  if (context.duration > 0) return static_cast<double>(context.duration) / AV_TIME_BASE;
  return 0;
}

std::optional<int> bitDepthOf(const AVCodecParameters& codec) {
  const AVCodecDescriptor* descriptor = avcodec_descriptor_get(codec.codec_id);
  if (!descriptor || (descriptor->props & AV_CODEC_PROP_LOSSLESS) == 0) return std::nullopt;
  // The raw width is that of the content; the coded one that of the words it lies in.
  return ifPositive(codec.bits_per_raw_sample > 0 ? codec.bits_per_raw_sample
                                                  : codec.bits_per_coded_sample);
}

/// The names that are there first stay.
void addTags(const AVDictionary* from, std::map<std::string, std::string>& tags) {
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(from, "", entry, AV_DICT_IGNORE_SUFFIX))) {
    tags.emplace(text::lowercaseASCII(entry->key), entry->value);
  }
}

/// Whether the first frames are those of one stream. Noise holds marks of frames too, and what
/// follows them sometimes passes for one; a row of them in one rate and channel count, or most of a
/// short file, is beyond chance.
bool hasConsistentFrames(media::MediaFile& media) {
  constexpr int kEnough = 8;
  constexpr int kMostPackets = 64;
  const AVCodecParameters& parameters = *media.audio().codecpar;
  const AVCodec* decoder = avcodec_find_decoder(parameters.codec_id);
  // Only a codec whose frames have marks of their own can be told from noise by them.
  AVCodecParserContext* const parser = av_parser_init(parameters.codec_id);
  if (!parser) return false;
  av_parser_close(parser);
  const media::Codec context(decoder ? avcodec_alloc_context3(decoder) : nullptr);
  const media::Packet packet(av_packet_alloc());
  const media::Frame frame(av_frame_alloc());
  if (!context || !packet || !frame ||
      avcodec_parameters_to_context(context.get(), &parameters) < 0 ||
      avcodec_open2(context.get(), decoder, nullptr) < 0) {
    return false;
  }
  std::int64_t codedBytes = 0;
  int frames = 0;
  int rate = 0;
  int channels = 0;
  for (int i = 0; i < kMostPackets && frames < kEnough; ++i) {
    av_packet_unref(packet.get());
    if (av_read_frame(&media.context(), packet.get()) < 0) break;
    if (packet->stream_index != media.audio().index) continue;
    if (avcodec_send_packet(context.get(), packet.get()) < 0) return false;
    codedBytes += packet->size;
    for (int code = 0;
         (code = avcodec_receive_frame(context.get(), frame.get())) != AVERROR(EAGAIN); ++frames) {
      if (code < 0) return false;
      if (frames == 0) {
        rate = frame->sample_rate;
        channels = frame->ch_layout.nb_channels;
      }
      if (frame->sample_rate != rate || frame->ch_layout.nb_channels != channels) return false;
    }
  }
  return frames >= kEnough || (frames > 0 && 2 * codedBytes >= avio_size(media.context().pb));
}

}  // namespace

Result<MediaProperties, MediaError> probeMedia(const std::string& path) {
  auto media = media::MediaFile::open(path);
  if (!media) return media.error();
  const AVFormatContext& context = media.value()->context();
  const AVStream& stream = media.value()->audio();
  const AVCodecParameters& codec = *stream.codecpar;

  MediaProperties properties;
  properties.duration = durationOf(context, stream);
  properties.sampleRate = ifPositive(codec.sample_rate);
  properties.channels = ifPositive(codec.ch_layout.nb_channels);
  properties.bitDepth = bitDepthOf(codec);
  properties.bitRate = ifPositive(codec.bit_rate > 0 ? codec.bit_rate : context.bit_rate);
  properties.codec = avcodec_get_name(codec.codec_id);
  addTags(context.metadata, properties.tags);
  addTags(stream.metadata, properties.tags);
  // Last: it moves on in the file.
  if (context.probe_score < AVPROBE_SCORE_RETRY && !hasConsistentFrames(*media.value())) {
    return MediaError{"there is no sound in the file"};
  }
  return properties;
}

}  // namespace velorin
