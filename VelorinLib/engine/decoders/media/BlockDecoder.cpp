#include "engine/decoders/media/BlockDecoder.h"

#include <fmt/format.h>

#include <bit>
#include <new>
#include <utility>

extern "C" {
#include <libavutil/intreadwrite.h>
#include <libavutil/opt.h>
}

#include "platform/audio/StreamFormat.h"

namespace velorin::media {
namespace {

DecoderError cannotDecode(const char* what) {
  return {.text = fmt::format("the sound cannot be decoded: {}; convert the file to FLAC", what)};
}

DecoderError noMemory() {
  return {.kind = DecoderError::Kind::allocationFailed,
          .text = "not enough memory for a decoder; close other programs"};
}

/// Of two decoders the one that computes in floating point: the other one rounds to 16 bits, with
/// an error that it carries on for ever.
const AVCodec* decoderOf(AVCodecID codec) {
  if (codec == AV_CODEC_ID_MP2) return avcodec_find_decoder_by_name("mp2float");
  if (codec == AV_CODEC_ID_MP1) return avcodec_find_decoder_by_name("mp1float");
  return avcodec_find_decoder(codec);
}

/// Side data: frames to cut at the start and at the end, two little-endian words.
constexpr std::size_t kCutBytes = 10;

}  // namespace

Result<std::unique_ptr<BlockDecoder>, DecoderError> BlockDecoder::open(PacketReader& packets) {
  std::unique_ptr<BlockDecoder> decoder(new BlockDecoder(packets));
  decoder->_frame.reset(av_frame_alloc());
  if (!decoder->_frame) return noMemory();
  if (auto problem = decoder->openCodec()) return *problem;
  return decoder;
}

std::optional<DecoderError> BlockDecoder::openCodec() {
  const AVCodecParameters& parameters = _packets.codec();
  const AVCodec* codec = decoderOf(parameters.codec_id);
  if (!codec) return cannotDecode("there is no decoder for this codec");
  _codec.reset(avcodec_alloc_context3(codec));
  if (!_codec || avcodec_parameters_to_context(_codec.get(), &parameters) < 0) return noMemory();
  AVCodecContext& context = *_codec;
  context.thread_count = 1;
  context.pkt_timebase = _packets.stream().time_base;
  context.flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;
  context.codec_whitelist = av_strdup(_packets.rules().decoders);
  // Of what a codec fills in by chance: the same each time.
  av_opt_set_int(&context, "cons_noisegen", 1, AV_OPT_SEARCH_CHILDREN);
  if (const int code = avcodec_open2(&context, codec, nullptr); code < 0) {
    return cannotDecode(mediaError("the decoder does not start", code).reason.c_str());
  }
  return std::nullopt;
}

/// Whether the packets hold the samples as they are in memory already.
bool BlockDecoder::isPlain() const noexcept {
  if (std::endian::native != std::endian::little || !_packets.rawFrames()) return false;
  const AVCodecID codec = _codec->codec_id;
  return codec == AV_CODEC_ID_PCM_S16LE || codec == AV_CODEC_ID_PCM_S32LE ||
         codec == AV_CODEC_ID_PCM_F32LE;
}

/// The next packet as a block.
bool BlockDecoder::takePlain() noexcept {
  av_frame_unref(_frame.get());
  AVPacket* const packet = _packets.next();
  const int channels = _codec->ch_layout.nb_channels;
  if (!packet || av_channel_layout_copy(&_frame->ch_layout, &_codec->ch_layout) < 0) return false;
  _frame->format = _codec->sample_fmt;
  _frame->sample_rate = _codec->sample_rate;
  _frame->nb_samples = packet->size / channels / av_get_bytes_per_sample(_codec->sample_fmt);
  _frame->pts = packet->pts;
  _frame->buf[0] = std::exchange(packet->buf, nullptr);
  _frame->data[0] = packet->data;
  _frame->extended_data = _frame->data;
  return true;
}

bool BlockDecoder::next() noexcept {
  _isAfterLoss = false;
  if (isPlain()) return takePlain();
  for (;;) {
    const int code = avcodec_receive_frame(_codec.get(), _frame.get());
    if (code == 0) {
      if (_frame->nb_samples > 0 && _frame->ch_layout.nb_channels > 0) return true;
      continue;
    }
    if (code == AVERROR_EOF) break;
    if (code != AVERROR(EAGAIN)) _isAfterLoss = true;
    if (!feed()) break;
  }
  av_frame_unref(_frame.get());
  return false;
}

bool BlockDecoder::feed() noexcept {
  if (_isDraining) return false;
  AVPacket* const packet = _packets.next();
  if (!packet) {
    _isDraining = true;
    avcodec_send_packet(_codec.get(), nullptr);
    return true;
  }
  if (!_sawPacket) {
    _sawPacket = true;
    std::size_t bytes = 0;
    const std::uint8_t* cut = av_packet_get_side_data(packet, AV_PKT_DATA_SKIP_SAMPLES, &bytes);
    if (cut && bytes >= kCutBytes) _startCut = AV_RL32(cut);
  }
  if (avcodec_send_packet(_codec.get(), packet) < 0) _isAfterLoss = true;
  return true;
}

std::int64_t BlockDecoder::wantedEndCut() const noexcept {
  const AVFrameSideData* cut = av_frame_get_side_data(_frame.get(), AV_FRAME_DATA_SKIP_SAMPLES);
  return cut && cut->size >= kCutBytes ? AV_RL32(cut->data + 4) : 0;
}

void BlockDecoder::flush() noexcept {
  avcodec_flush_buffers(_codec.get());
  av_frame_unref(_frame.get());
  _isDraining = false;
}

bool BlockDecoder::restart() noexcept {
  av_frame_unref(_frame.get());
  _isDraining = false;
  try {
    if (!openCodec()) return true;
  } catch (const std::bad_alloc&) {
  }
  _isDraining = true;
  _codec.reset(avcodec_alloc_context3(nullptr));
  return false;
}

}  // namespace velorin::media
