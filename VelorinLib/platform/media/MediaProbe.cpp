#include "platform/media/MediaProbe.h"

#include <limits>

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
  return properties;
}

}  // namespace velorin
