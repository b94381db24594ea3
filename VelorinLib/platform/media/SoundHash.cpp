#include "platform/media/SoundHash.h"

#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include "platform/media/MediaFile.h"
#include "platform/media/Murmur.h"

namespace velorin {
namespace {

/// One sample as an integer of the full 32-bit scale.
template <class Sample>
std::int32_t canonical(Sample sample) {
  if constexpr (std::is_same_v<Sample, std::uint8_t>) {
    return (static_cast<std::int32_t>(sample) - 128) * (1 << 24);
  } else if constexpr (std::is_same_v<Sample, std::int16_t>) {
    return static_cast<std::int32_t>(sample) * (1 << 16);
  } else if constexpr (std::is_integral_v<Sample>) {
    return static_cast<std::int32_t>(static_cast<std::int64_t>(sample) >>
                                     (8 * sizeof(Sample) - 32));
  } else {
    // The lowest bits of a floating-point decoder differ from one processor to another.
    const double scaled = std::nearbyint(static_cast<double>(sample) * 32768.0);
    if (!(scaled > -32768.0)) return std::isnan(scaled) ? 0 : -32768 * (1 << 16);
    return static_cast<std::int32_t>(std::min(scaled, 32767.0)) * (1 << 16);
  }
}

template <class Sample>
void interleave(const AVFrame& frame, std::vector<std::int32_t>& out) {
  const int channels = frame.ch_layout.nb_channels;
  const bool planar = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame.format)) != 0;
  out.resize(static_cast<std::size_t>(frame.nb_samples) * static_cast<std::size_t>(channels));
  std::size_t at = 0;
  for (int i = 0; i < frame.nb_samples; ++i) {
    for (int channel = 0; channel < channels; ++channel) {
      const auto* plane =
          reinterpret_cast<const Sample*>(frame.extended_data[planar ? channel : 0]);
      out[at++] = canonical(plane[planar ? i : i * channels + channel]);
    }
  }
}

bool samplesOf(const AVFrame& frame, std::vector<std::int32_t>& out) {
  switch (av_get_packed_sample_fmt(static_cast<AVSampleFormat>(frame.format))) {
    case AV_SAMPLE_FMT_U8:
      interleave<std::uint8_t>(frame, out);
      return true;
    case AV_SAMPLE_FMT_S16:
      interleave<std::int16_t>(frame, out);
      return true;
    case AV_SAMPLE_FMT_S32:
      interleave<std::int32_t>(frame, out);
      return true;
    case AV_SAMPLE_FMT_S64:
      interleave<std::int64_t>(frame, out);
      return true;
    case AV_SAMPLE_FMT_FLT:
      interleave<float>(frame, out);
      return true;
    case AV_SAMPLE_FMT_DBL:
      interleave<double>(frame, out);
      return true;
    default:
      return false;
  }
}

/// Takes interleaved samples in pieces of any size until it has enough.
class Hasher {
 public:
  void begin(int sampleRate, int channels) {
    _channels = static_cast<std::size_t>(channels);
    _silenceLeft = std::uint64_t{kSkippedSilence} * static_cast<unsigned>(sampleRate) * _channels;
    _soundLeft = std::uint64_t{kHashedSeconds} * static_cast<unsigned>(sampleRate) * _channels;
    const std::array<std::int32_t, 2> shape = {sampleRate, channels};
    _hash.update(std::as_bytes(std::span(shape)));
  }

  /// False when it wants no more.
  bool take(std::span<const std::int32_t> samples) {
    if (!_heard) {
      const auto sound =
          std::find_if(samples.begin(), samples.end(), [](auto s) { return s != 0; });
      auto silent = static_cast<std::size_t>(sound - samples.begin());
      silent -= silent % _channels;
      if (silent == samples.size()) {
        _silenceLeft -= std::min<std::uint64_t>(_silenceLeft, silent);
        return _silenceLeft > 0;
      }
      _heard = true;
      samples = samples.subspan(silent);
    }
    const auto count = std::min<std::uint64_t>(samples.size(), _soundLeft);
    _hash.update(std::as_bytes(samples.first(static_cast<std::size_t>(count))));
    _soundLeft -= count;
    return _soundLeft > 0;
  }

  bool heardSound() const { return _heard; }

  SoundHash finish() { return {_hash.finish()}; }

 private:
  media::Murmur _hash;
  std::size_t _channels = 1;
  std::uint64_t _silenceLeft = 0;  // samples of all channels
  std::uint64_t _soundLeft = 0;
  bool _heard = false;
};

/// Decodes frame by frame; a broken packet is passed over, as a player does.
class FrameReader {
 public:
  static Result<std::unique_ptr<FrameReader>, MediaError> open(media::MediaFile& file) {
    const AVCodecParameters& parameters = *file.audio().codecpar;
    const AVCodec* decoder = avcodec_find_decoder(parameters.codec_id);
    if (!decoder) return MediaError{"there is no decoder for this codec"};
    std::unique_ptr<FrameReader> reader(new FrameReader(file));
    reader->_codec.reset(avcodec_alloc_context3(decoder));
    if (!reader->_codec || !reader->_frame || !reader->_packet) {
      return MediaError{"not enough memory"};
    }
    if (int code = avcodec_parameters_to_context(reader->_codec.get(), &parameters); code < 0) {
      return media::mediaError("the sound cannot be decoded", code);
    }
    reader->_codec->thread_count = 1;
    reader->_codec->pkt_timebase = file.audio().time_base;
    if (int code = avcodec_open2(reader->_codec.get(), decoder, nullptr); code < 0) {
      return media::mediaError("the sound cannot be decoded", code);
    }
    return reader;
  }

  /// Null at the end.
  const AVFrame* next() {
    for (;;) {
      const int code = avcodec_receive_frame(_codec.get(), _frame.get());
      if (code == 0) return _frame.get();
      if (code == AVERROR_EOF || _draining) return nullptr;
      feed();
    }
  }

 private:
  explicit FrameReader(media::MediaFile& file)
      : _file(file), _frame(av_frame_alloc()), _packet(av_packet_alloc()) {}

  void feed() {
    for (;;) {
      av_packet_unref(_packet.get());
      if (av_read_frame(&_file.context(), _packet.get()) < 0) {
        _draining = avcodec_send_packet(_codec.get(), nullptr) < 0;
        return;
      }
      if (_packet->stream_index != _file.audio().index) continue;
      avcodec_send_packet(_codec.get(), _packet.get());
      return;
    }
  }

  media::MediaFile& _file;
  media::Codec _codec;
  media::Frame _frame;
  media::Packet _packet;
  bool _draining = false;
};

}  // namespace

Result<SoundHash, MediaError> hashSound(const std::string& path) {
  auto file = media::MediaFile::open(path);
  if (!file) return file.error();
  auto reader = FrameReader::open(*file.value());
  if (!reader) return reader.error();

  Hasher hasher;
  std::vector<std::int32_t> samples;
  int channels = 0;
  while (const AVFrame* frame = reader.value()->next()) {
    if (channels == 0) {
      channels = frame->ch_layout.nb_channels;
      if (channels <= 0 || frame->sample_rate <= 0) return MediaError{"the sound has no channels"};
      hasher.begin(frame->sample_rate, channels);
    }
    if (frame->ch_layout.nb_channels != channels || !samplesOf(*frame, samples)) break;
    if (!hasher.take(samples)) break;
  }
  if (!hasher.heardSound()) return MediaError{"there is nothing but silence in the first minute"};
  return hasher.finish();
}

}  // namespace velorin
