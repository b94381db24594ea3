#include "engine/decoders/media/MediaKinds.h"

#include <array>
#include <string_view>

extern "C" {
#include <libavcodec/codec_desc.h>
}

namespace velorin::media {

const char* const kMusicDemuxers =
    "mp3,aac,ac3,eac3,mov,mp4,m4a,aiff,wav,w64,caf,au,ogg,flac,tta,asf,matroska,webm";

const char* const kMusicDecoders =
    "mp3float,mp3,mp2float,mp2,mp1float,mp1,aac,alac,ac3,eac3,flac,vorbis,opus,libspeex,speex,tta,"
    "wmav1,wmav2,wmapro,wmalossless,ape,wavpack,adpcm_ms,adpcm_ima_wav,adpcm_ima_qt,"
    "pcm_alaw,pcm_mulaw,pcm_u8,pcm_s8,pcm_s16le,pcm_s16be,pcm_s24le,pcm_s24be,pcm_s32le,pcm_s32be,"
    "pcm_s64le,pcm_s64be,pcm_f32le,pcm_f32be,pcm_f64le,pcm_f64be,pcm_s16le_planar,pcm_s24le_planar,"
    "pcm_s32le_planar,pcm_u16le,pcm_u16be,pcm_u24le,pcm_u24be,pcm_u32le,pcm_u32be";

namespace {

struct CodecName {
  AVCodecID codec;
  std::string_view name;
};
constexpr std::array kCodecNames = {
    CodecName{AV_CODEC_ID_MP3, "MP3"},         CodecName{AV_CODEC_ID_MP2, "MP2"},
    CodecName{AV_CODEC_ID_MP1, "MP1"},         CodecName{AV_CODEC_ID_AAC, "AAC"},
    CodecName{AV_CODEC_ID_ALAC, "ALAC"},       CodecName{AV_CODEC_ID_VORBIS, "Vorbis"},
    CodecName{AV_CODEC_ID_OPUS, "Opus"},       CodecName{AV_CODEC_ID_SPEEX, "Speex"},
    CodecName{AV_CODEC_ID_FLAC, "FLAC"},       CodecName{AV_CODEC_ID_AC3, "AC-3"},
    CodecName{AV_CODEC_ID_EAC3, "E-AC-3"},     CodecName{AV_CODEC_ID_TTA, "TTA"},
    CodecName{AV_CODEC_ID_APE, "APE"},         CodecName{AV_CODEC_ID_WMAV1, "WMA"},
    CodecName{AV_CODEC_ID_WMAV2, "WMA"},       CodecName{AV_CODEC_ID_WMAPRO, "WMA Pro"},
    CodecName{AV_CODEC_ID_WAVPACK, "WavPack"}, CodecName{AV_CODEC_ID_WMALOSSLESS, "WMA Lossless"},
};

/// By the first name that the library gives a container.
constexpr std::array<std::pair<std::string_view, std::string_view>, 8> kContainerNames = {{
    {"wav", "WAV"},
    {"w64", "Wave64"},
    {"aiff", "AIFF"},
    {"caf", "CAF"},
    {"au", "AU"},
    {"mov", "MP4 PCM"},
    {"matroska", "Matroska PCM"},
    {"ogg", "Ogg PCM"},
}};

}  // namespace

std::string nameOfSound(AVCodecID codec, const std::string& container) {
  for (const CodecName& each : kCodecNames) {
    if (each.codec == codec) return std::string(each.name);
  }
  if (isPCM(codec)) {
    for (const auto& [start, name] : kContainerNames) {
      if (std::string_view(container).starts_with(start)) return std::string(name);
    }
  }
  if (codec >= AV_CODEC_ID_ADPCM_IMA_QT && codec < AV_CODEC_ID_AMR_NB) return "ADPCM";
  const AVCodecDescriptor* descriptor = avcodec_descriptor_get(codec);
  return descriptor ? descriptor->name : "unknown";
}

bool isPCM(AVCodecID codec) noexcept {
  return codec >= AV_CODEC_ID_FIRST_AUDIO && codec < AV_CODEC_ID_ADPCM_IMA_QT;
}

bool isLossless(AVCodecID codec) noexcept {
  const AVCodecDescriptor* descriptor = avcodec_descriptor_get(codec);
  return descriptor && (descriptor->props & AV_CODEC_PROP_LOSSLESS) != 0 &&
         (descriptor->props & AV_CODEC_PROP_LOSSY) == 0;
}

std::int64_t prerollOf(AVCodecID codec, std::int64_t frameSize, std::int64_t sampleRate) noexcept {
  switch (codec) {
    case AV_CODEC_ID_MP3:
      return 16 * frameSize;
    case AV_CODEC_ID_OPUS:
      return sampleRate;
    case AV_CODEC_ID_VORBIS:
      return 2 * 8192;
    case AV_CODEC_ID_SPEEX:
      return sampleRate;
    default:
      return isLossless(codec) || isPCM(codec) ? 0 : 4 * frameSize;
  }
}

}  // namespace velorin::media
