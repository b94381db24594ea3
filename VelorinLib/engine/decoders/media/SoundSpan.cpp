#include "engine/decoders/media/SoundSpan.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

#include "engine/decoders/media/EditList.h"
#include "engine/decoders/media/InfoTag.h"
#include "engine/decoders/media/MediaKinds.h"
#include "engine/decoders/media/PacketTable.h"

extern "C" {
#include <libavutil/dict.h>
#include <libavutil/mathematics.h>
}

namespace velorin::media {
namespace {

/// The longest MP3 frame, with room for what is squeezed in between.
constexpr std::uint64_t kMostInfoBytes = 4096;

/// Whether the tag's count of bytes is that of this file: tags behind the sound may take some, but
/// another file appended, or half of this one missing, makes the tag's length a wrong one.
bool fitsFile(const InfoTag& tag, std::uint64_t soundBytes) {
  if (tag.frames == 0) return false;
  if (tag.bytes == 0) return true;
  const auto told = static_cast<double>(tag.bytes);
  const auto there = static_cast<double>(soundBytes);
  constexpr double kTagRoom = 256 * 1024;
  return there > 0.99 * told - 4096 && there < 1.02 * told + kTagRoom;
}

SoundSpan spanOfFrames(PacketReader& packets, std::int64_t frameSize, bool& movedOn) {
  SoundSpan span;
  const std::uint64_t first = packets.firstPlace();
  if (packets.codec().codec_id == AV_CODEC_ID_MP3 && first > 0) {
    std::array<std::byte, kMostInfoBytes> head{};
    const std::uint64_t from = first - std::min(first, kMostInfoBytes);
    const auto read = std::span(head).first(static_cast<std::size_t>(first - from));
    if (const auto tag = findInfoTag(read.first(packets.readBytes(from, read)))) {
      if (tag->hasGaps) span.begin = tag->delay + kMP3DecoderDelay;
      if (fitsFile(*tag, packets.size() - std::min(first, packets.size()))) {
        const std::int64_t all = tag->frames * frameSize;
        const std::int64_t gaps = tag->hasGaps ? std::int64_t{tag->delay} + tag->padding : 0;
        span.frames = std::max<std::int64_t>(0, all - gaps);
        span.isBinding = tag->hasGaps && span.frames > 0;
        return span;
      }
    }
  }
  movedOn = true;
  span.frames = std::max<std::int64_t>(0, packets.countPackets() * frameSize - span.begin);
  return span;
}

/// Frames by the size of the sound's bytes, which a header may overstate.
std::int64_t pcmFramesThere(PacketReader& packets, const AVCodecContext& codec) {
  const int bits = av_get_bits_per_sample(codec.codec_id);
  const std::int64_t frameBytes = std::int64_t{codec.ch_layout.nb_channels} * bits / 8;
  if (frameBytes <= 0) return 0;
  const std::uint64_t size = packets.size();
  return static_cast<std::int64_t>(size - std::min(size, packets.firstPlace())) / frameBytes;
}

/// What iTunes writes of AAC: priming, remainder and length in samples, as hexadecimal words behind
/// a first one of zeros.
bool takeITunesGaps(const AVFormatContext& context, SoundSpan& span) {
  const AVDictionaryEntry* entry = av_dict_get(context.metadata, "iTunSMPB", nullptr, 0);
  if (!entry) return false;
  std::array<std::int64_t, 4> words{};
  std::string_view text(entry->value);
  for (std::int64_t& word : words) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), word, 16);
    if (error != std::errc() || word < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  }
  const auto [zero, priming, remainder, frames] = words;
  if (frames == 0 || priming > span.frames || frames > span.frames - priming) return false;
  span.begin = priming;
  span.frames = frames;
  return true;
}

/// Cuts a CAF file's sound to what its table tells of the gaps.
void takePacketTable(PacketReader& packets, SoundSpan& span) {
  const auto table = findPacketTable(packets);
  if (!table || table->primingFrames < 0 || table->remainderFrames < 0 ||
      table->primingFrames + table->remainderFrames == 0 || table->validFrames <= 0 ||
      table->validFrames > span.frames - table->primingFrames) {
    return;
  }
  span.begin = table->primingFrames;
  span.frames = table->validFrames;
}

/// Cuts a track of an MP4 file to its edit.
void takeEdit(PacketReader& packets, int sampleRate, SoundSpan& span) {
  const auto edit = findEdit(packets);
  if (!edit) return;
  const auto rate = static_cast<std::uint64_t>(sampleRate);
  const std::int64_t start = av_rescale(edit->mediaStart, sampleRate, edit->trackTicks);
  if (start < 0 || start >= span.frames) return;
  span.begin = start;
  span.frames -= start;
  if (edit->duration == 0 || edit->duration > std::uint64_t{1} << 40) return;
  // A movie counts in ticks that are longer than a frame, so the edit's end is known that well
  // only; within a tick of the sound's own end it means that.
  const auto told = static_cast<std::int64_t>(edit->duration * rate / edit->movieTicks);
  const auto tick = static_cast<std::int64_t>(rate / edit->movieTicks) + 1;
  if (told < span.frames - tick) span.frames = told;
}

}  // namespace

SoundSpan findSoundSpan(PacketReader& packets, const BlockDecoder& decoder, std::int64_t firstStamp,
                        std::int64_t frameSize, bool& movedOn) {
  if (packets.numbers() == PacketReader::Numbers::counted) {
    return spanOfFrames(packets, frameSize, movedOn);
  }
  const AVCodecContext& codec = decoder.context();
  const AVStream& stream = packets.stream();
  SoundSpan span;
  if (const auto frames = packets.rawFrames()) {
    span.frames = *frames;
    return span;
  }
  if (stream.duration > 0) {
    span.frames = av_rescale_q(stream.duration, stream.time_base, {1, codec.sample_rate});
  } else if (packets.context().duration > 0) {
    span.frames = av_rescale(packets.context().duration, codec.sample_rate, AV_TIME_BASE);
  }
  if (isPCM(codec.codec_id)) {
    const std::int64_t there = pcmFramesThere(packets, codec);
    span.frames = span.frames > 0 ? std::min(span.frames, there) : there;
    return span;
  }
  if (packets.numbers() == PacketReader::Numbers::stamped) {
    // What is stamped before zero is not to be heard.
    span.begin = firstStamp < 0 ? -firstStamp : 0;
    span.isBinding = span.frames > 0;
  }
  if (decoder.wantedStartCut() > 0) span.begin = decoder.wantedStartCut();
  if (codec.codec_id == AV_CODEC_ID_OPUS && span.begin == 0) {
    span.begin = packets.codec().initial_padding;
  }
  const std::string_view container = packets.context().iformat->name;
  if (container == "caf") takePacketTable(packets, span);
  const bool isMP4 = container.starts_with("mov");
  if (isMP4 && !takeITunesGaps(packets.context(), span)) takeEdit(packets, codec.sample_rate, span);
  return span;
}

}  // namespace velorin::media
