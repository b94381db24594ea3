#include "engine/decoders/media/MediaStream.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "engine/decoders/media/BlockDecoder.h"
#include "engine/decoders/media/MediaKinds.h"
#include "engine/decoders/media/PacketReader.h"
#include "engine/decoders/media/SampleCopy.h"
#include "engine/decoders/media/SoundSpan.h"

namespace velorin {
namespace {

using media::PacketReader;

// Seconds. A longer hole in the numbering is a header's lie rather than damage.
constexpr int kLongestLoss = 10;

// Seconds of sound, with long windows, in a page of Ogg: 255 packets.
constexpr int kLongestPage = 8;

DecoderError initFailed(std::string text) {
  return {.kind = DecoderError::Kind::initFailed, .text = std::move(text)};
}

media::MediaRules rulesFor(MediaStream::Kinds kinds, std::string_view extension) {
  const bool isApe = kinds == MediaStream::Kinds::ape;
  return {.name = fmt::format("track.{}", extension),
          .demuxers = isApe ? media::kApeDemuxers : media::kMusicDemuxers,
          .decoders = isApe ? media::kApeDecoders : media::kMusicDecoders,
          // The library cuts to whole packets and whole milliseconds; see EditList.h.
          .options = "ignore_editlist=1"};
}

bool isFloatFormat(AVSampleFormat format) {
  const AVSampleFormat packed = av_get_packed_sample_fmt(format);
  return packed == AV_SAMPLE_FMT_FLT || packed == AV_SAMPLE_FMT_DBL;
}

std::uint32_t bitsOf(const AVCodecContext& codec) {
  if (codec.bits_per_raw_sample > 0) return static_cast<std::uint32_t>(codec.bits_per_raw_sample);
  if (codec.bits_per_coded_sample > 0) {
    return static_cast<std::uint32_t>(codec.bits_per_coded_sample);
  }
  return static_cast<std::uint32_t>(8 * av_get_bytes_per_sample(codec.sample_fmt));
}

}  // namespace

struct MediaStream::Library {
  std::unique_ptr<PacketReader> packets;
  std::unique_ptr<media::BlockDecoder> decoder;
  std::int64_t preroll = 0;
};

MediaStream::MediaStream(std::unique_ptr<Library> library) noexcept
    : _library(std::move(library)) {}

MediaStream::~MediaStream() = default;

Result<std::unique_ptr<MediaStream>, DecoderError> MediaStream::open(
    std::unique_ptr<ReadableFile> file, Kinds kinds, std::string_view extension) {
  if (file == nullptr) return initFailed("there is no file to read");
  if (file->size() == 0) {
    return initFailed("the file is empty (0 bytes); copy it again from its source");
  }
  auto packets = PacketReader::open(std::move(file), rulesFor(kinds, extension));
  if (!packets) {
    DecoderError error = packets.error();
    error.text += "; give it the extension of its real format, or copy it again if it is damaged";
    return error;
  }
  auto library = std::make_unique<Library>();
  library->packets = std::move(packets).value();
  auto decoder = media::BlockDecoder::open(*library->packets);
  if (!decoder) return decoder.error();
  library->decoder = std::move(decoder).value();
  std::unique_ptr<MediaStream> stream(new MediaStream(std::move(library)));
  if (auto problem = stream->begin()) return *problem;
  return stream;
}

std::optional<DecoderError> MediaStream::begin() {
  PacketReader& packets = *_library->packets;
  media::BlockDecoder& decoder = *_library->decoder;
  const AVCodecContext& codec = decoder.context();
  const bool hasSound = decoder.next();
  const std::int64_t firstStamp = hasSound ? decoder.start() : AV_NOPTS_VALUE;
  // The first block knows better than the header, of a rate that is doubled for one.
  const int rate = hasSound ? decoder.block().sample_rate : codec.sample_rate;
  const int channels =
      hasSound ? decoder.block().ch_layout.nb_channels : codec.ch_layout.nb_channels;
  if (rate <= 0) return initFailed("the file states a sample rate of 0 Hz; it is damaged");
  if (channels <= 0 || static_cast<std::size_t>(channels) > kMaxChannels) {
    return initFailed(
        fmt::format("the file states {} channels; 1 to {} can be played", channels, kMaxChannels));
  }
  _format.sampleRate = rate;
  _format.channels = static_cast<std::uint32_t>(channels);
  _format.isLossless = media::isLossless(codec.codec_id);
  _format.bitsPerSample = _format.isLossless ? bitsOf(codec) : 0;
  _format.isFloat = _format.isLossless && isFloatFormat(codec.sample_fmt);
  _format.name = media::nameOfSound(codec.codec_id, packets.context().iformat->name);
  if (!hasSound) {
    _isEOF = true;
    return std::nullopt;
  }

  const std::int64_t first = packets.setScale(firstStamp, decoder.frames(), rate);
  bool movedOn = false;
  const media::SoundSpan span =
      media::findSoundSpan(packets, decoder, firstStamp, decoder.frames(), movedOn);
  _library->preroll = media::prerollOf(codec.codec_id, decoder.frames(), rate);
  _isTotalExact = packets.numbers() == PacketReader::Numbers::counted ||
                  packets.numbers() == PacketReader::Numbers::stamped ||
                  media::isPCM(codec.codec_id);
  _begin = span.begin;
  _format.totalFrames = span.frames;
  if (span.isBinding) _end = span.begin + span.frames;
  // A CAF file may count whole packets although its last one holds less.
  const bool isCAF = std::string_view(packets.context().iformat->name) == "caf";
  if (isCAF && !media::isPCM(codec.codec_id) && _isTotalExact && span.frames > 0) {
    measureEnd(decoder.frames());
    movedOn = true;
  }
  if (movedOn) {
    if (!goTo(_begin)) _isEOF = true;
    return std::nullopt;
  }
  _silence = std::clamp<std::int64_t>(first, 0, std::int64_t{kLongestLoss} * rate);
  takeBlock();
  return std::nullopt;
}

void MediaStream::measureEnd(std::int64_t frameSize) noexcept {
  if (!goTo(_begin + std::max<std::int64_t>(0, _format.totalFrames - 2 * frameSize))) return;
  do {
    pass(_silence + _blockLeft);
  } while (nextBlock());
  _format.totalFrames = std::min(_format.totalFrames, _next - _begin);
}

std::int64_t MediaStream::position() const noexcept {
  return std::max<std::int64_t>(0, _next - _begin);
}

DecodeResult MediaStream::read(const AudioBufferList& target, std::uint32_t frames,
                               bool asFloat) noexcept {
  const std::uint32_t sampleSize = !asFloat && _format.bitsPerSample <= 16 ? 2 : 4;
  std::int64_t wanted = frames;
  for (std::uint32_t i = 0; i < target.bufferCount; ++i) {
    wanted = std::min<std::int64_t>(wanted, target.buffers[i].byteSize / sampleSize);
  }
  std::int64_t filled = 0;
  while (filled < wanted && !_isEOF) {
    if (_end >= 0 && _next >= _end) {
      _isEOF = true;
    } else if (_silence == 0 && _blockLeft == 0) {
      _isEOF = !nextBlock();
    } else if (_next < _begin) {
      pass(std::min(_begin - _next, _silence > 0 ? _silence : _blockLeft));
    } else {
      std::int64_t count = std::min(wanted - filled, _silence > 0 ? _silence : _blockLeft);
      if (_end >= 0) count = std::min(count, _end - _next);
      deliver(target, static_cast<std::uint32_t>(filled), static_cast<std::uint32_t>(count),
              asFloat);
      pass(count);
      filled += count;
    }
  }
  return {.status = 0, .frames = static_cast<std::uint32_t>(filled)};
}

void MediaStream::deliver(const AudioBufferList& target, std::uint32_t at, std::uint32_t count,
                          bool asFloat) noexcept {
  using media::TargetWord;
  const TargetWord word = asFloat                       ? TargetWord::float32
                          : _format.bitsPerSample <= 16 ? TargetWord::int16
                                                        : TargetWord::int32;
  const std::size_t size = word == TargetWord::int16 ? 2 : 4;
  std::uint32_t both = std::min(target.bufferCount, _format.channels);
  if (_silence > 0 ||
      !media::copySamples(_library->decoder->block(), _blockAt, target, both, at, count, word)) {
    both = 0;
  }
  for (std::uint32_t i = both; i < target.bufferCount; ++i) {
    std::memset(target.channel<std::byte>(i) + at * size, 0, count * size);
  }
}

/// Within the silence or the block.
void MediaStream::pass(std::int64_t frames) noexcept {
  const std::int64_t silent = std::min(frames, _silence);
  _silence -= silent;
  _blockAt += frames - silent;
  _blockLeft -= frames - silent;
  _next += frames;
}

void MediaStream::takeBlock() noexcept {
  const media::BlockDecoder& decoder = *_library->decoder;
  _blockAt = 0;
  _blockLeft = decoder.frames();
  if (_end < 0) _blockLeft = std::max<std::int64_t>(0, _blockLeft - decoder.wantedEndCut());
}

bool MediaStream::nextBlock() noexcept {
  media::BlockDecoder& decoder = *_library->decoder;
  _silence = 0;
  _blockLeft = 0;
  while (decoder.next()) {
    const std::int64_t start = decoder.start();
    if (_next < 0) {
      if (start == AV_NOPTS_VALUE || start < 0) continue;
      _next = start;
    } else if (decoder.isAfterLoss() && start != AV_NOPTS_VALUE && start > _next &&
               start - _next <= kLongestLoss * static_cast<std::int64_t>(_format.sampleRate)) {
      _silence = start - _next;
    }
    takeBlock();
    if (_silence + _blockLeft > 0) return true;
  }
  return false;
}

bool MediaStream::seek(std::int64_t frame) noexcept {
  const std::int64_t target = std::max<std::int64_t>(frame, 0);
  // Known to be past the end: refused before the block that is being read is dropped.
  const std::int64_t total = _format.totalFrames;
  if (total > 0 && target >= total && _isTotalExact) return false;
  if (target > std::numeric_limits<std::int64_t>::max() / 2) return false;
  const std::int64_t before = _next;
  if (goTo(_begin + target)) {
    _isEOF = false;
    return true;
  }
  // Back to where we were, so that the position that is still reported stays true.
  if (_isEOF || !goTo(before)) {
    _isEOF = true;
    _silence = _blockLeft = 0;
    _next = before;
  }
  return false;
}

bool MediaStream::goTo(std::int64_t number) noexcept {
  PacketReader& packets = *_library->packets;
  const auto second = static_cast<std::int64_t>(_format.sampleRate);
  // The nearest packet at or before the target; where that turns out to lie behind it, or gives
  // nothing, ever earlier ones.
  std::int64_t preroll = _library->preroll;
  // Ogg counts back from the end of a page, but not from that of the last one, where padding is
  // cut.
  const bool isOgg = std::string_view(packets.context().iformat->name) == "ogg";
  if (isOgg && number > _begin + _format.totalFrames - kLongestPage * second) {
    preroll += kLongestPage * second;
  }
  for (const std::int64_t earlier : {std::int64_t{0}, second, 8 * second, 64 * second}) {
    const std::int64_t from = std::max<std::int64_t>(0, number - preroll - earlier);
    if (!packets.seek(from)) break;
    if (from > 0) {
      _library->decoder->flush();
    } else if (!_library->decoder->restart()) {
      return false;
    }
    _next = -1;
    const Search found = decodeUpTo(number);
    if (found == Search::reached) return true;
    if (found == Search::ended && _next >= 0) return false;
    if (from == 0) break;
  }
  if (!packets.rewind() || !_library->decoder->restart()) return false;
  _next = packets.numbers() == PacketReader::Numbers::none ? 0 : -1;
  return decodeUpTo(number) == Search::reached;
}

MediaStream::Search MediaStream::decodeUpTo(std::int64_t number) noexcept {
  while (nextBlock()) {
    if (_next > number) return Search::overshot;
    const std::int64_t there = _silence + _blockLeft;
    pass(std::min(number - _next, there));
    if (_silence + _blockLeft > 0) return Search::reached;
  }
  return Search::ended;
}

}  // namespace velorin
