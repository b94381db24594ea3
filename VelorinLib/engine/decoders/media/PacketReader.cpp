#include "engine/decoders/media/PacketReader.h"

#include <algorithm>
#include <new>
#include <string_view>
#include <system_error>

extern "C" {
#include <libavutil/mathematics.h>
}

namespace velorin::media {
namespace {

/// A decoder's file, read at any place.
class FileBytes final : public MediaBytes {
 public:
  explicit FileBytes(std::unique_ptr<ReadableFile> file) : _file(std::move(file)) {}
  std::uint64_t size() const noexcept override { return _file->size(); }
  std::size_t read(std::uint64_t offset, std::span<std::byte> destination) noexcept override {
    try {
      if (_file->offset() != offset) _file->seek(offset);
    } catch (const std::system_error&) {
      return 0;
    }
    return _file->readInto(destination);
  }

 private:
  const std::unique_ptr<ReadableFile> _file;
};

bool isStreamOfFrames(const AVFormatContext& context) {
  const std::string_view name = context.iformat->name;
  return name == "mp3" || name == "aac" || name == "ac3" || name == "eac3";
}

/// Whether every time stamp falls on a frame: a tick is a whole part of a frame's time, or, where a
/// codec doubles its rate (SBR), two frames.
bool isExact(AVRational timeBase, int sampleRate) {
  const std::int64_t ticks = timeBase.den;
  const std::int64_t frames = std::int64_t{sampleRate} * timeBase.num;
  return frames > 0 && (ticks % frames == 0 || frames == 2 * ticks);
}

/// Whether a stamp is that of the first frame of its packet. Not of Speex, whose decoder is late by
/// an unknown number of frames, nor of ADPCM, whose blocks the library splits as it likes.
bool areStampsTrue(AVCodecID codec) {
  return codec != AV_CODEC_ID_SPEEX &&
         (codec < AV_CODEC_ID_ADPCM_IMA_QT || codec >= AV_CODEC_ID_AMR_NB);
}

/// Codecs whose packets hold one number of frames, or tell by their first bytes that they do.
bool hasEqualPackets(AVCodecID codec) {
  return codec == AV_CODEC_ID_AAC || codec == AV_CODEC_ID_MP3 || codec == AV_CODEC_ID_AC3 ||
         codec == AV_CODEC_ID_OPUS || codec == AV_CODEC_ID_FLAC || codec == AV_CODEC_ID_ALAC ||
         codec == AV_CODEC_ID_TTA;
}

/// Stamps are foreign numbers: kept so small that no difference of them overflows.
std::int64_t inFrames(std::int64_t stamp, AVRational timeBase, int sampleRate) {
  constexpr std::int64_t kFarthest = std::int64_t{1} << 60;
  return std::clamp(av_rescale_q(stamp, timeBase, {1, sampleRate}), -kFarthest, kFarthest);
}

}  // namespace

Result<std::unique_ptr<PacketReader>, DecoderError> PacketReader::open(
    std::unique_ptr<ReadableFile> file, const MediaRules& rules) {
  std::unique_ptr<PacketReader> reader(
      new PacketReader(std::make_shared<FileBytes>(std::move(file)), rules));
  reader->_packet.reset(av_packet_alloc());
  auto opened = MediaFile::open(reader->_bytes, rules);
  if (!opened) return DecoderError{.text = opened.error().reason};
  reader->_file = std::move(opened).value();
  if (!reader->_packet) {
    return DecoderError{.kind = DecoderError::Kind::allocationFailed,
                        .text = "not enough memory for a decoder; close other programs"};
  }
  return reader;
}

std::int64_t PacketReader::setScale(std::int64_t firstStamp, std::int64_t frameSize,
                                    int sampleRate) noexcept {
  _sampleRate = sampleRate;
  _frameSize = frameSize;
  if (isStreamOfFrames(context())) {
    _numbers = Numbers::counted;
    return (_nextCount - 1) * frameSize;
  }
  if (firstStamp != AV_NOPTS_VALUE && areStampsTrue(codec().codec_id) &&
      isExact(stream().time_base, sampleRate)) {
    _numbers = Numbers::stamped;
    _firstStamp = inFrames(firstStamp, stream().time_base, sampleRate);
    if (_firstStamp == 0) findRawSound();
  } else if (firstStamp != AV_NOPTS_VALUE && hasEqualPackets(codec().codec_id) &&
             std::string_view(context().iformat->name).starts_with("matroska")) {
    _numbers = Numbers::listed;
    _firstStamp = inFrames(firstStamp, stream().time_base, sampleRate);
    return (_nextCount - 1) * frameSize;
  }
  return 0;
}

void PacketReader::findRawSound() noexcept {
  const std::int64_t told =
      stream().duration > 0 ? inFrames(stream().duration, stream().time_base, _sampleRate) : 0;
  _raw = RawSound::find(*_bytes, *context().iformat, codec(), firstPlace(), told);
  if (_raw) _raw->seek(_frameSize);
}

bool PacketReader::readPacket() noexcept {
  if (!_file) return false;
  _file->renewBudget();
  for (;;) {
    av_packet_unref(_packet.get());
    if (av_read_frame(&context(), _packet.get()) < 0) return false;
    if (_packet->stream_index != stream().index) continue;
    if (!_firstPlace) {
      _firstPlace = static_cast<std::uint64_t>(std::max<std::int64_t>(0, _packet->pos));
    }
    return true;
  }
}

AVPacket* PacketReader::next() noexcept {
  if (_raw) {
    av_packet_unref(_packet.get());
    return _raw->read(*_bytes, *_packet) ? _packet.get() : nullptr;
  }
  if (!readPacket()) return nullptr;
  if (_sampleRate > 0) {
    _packet->pts = numberOf(*_packet);
  } else {
    ++_nextCount;
  }
  return _packet.get();
}

std::int64_t PacketReader::numberOf(const AVPacket& packet) noexcept {
  if (_numbers == Numbers::stamped && packet.pts != AV_NOPTS_VALUE) {
    return inFrames(packet.pts, stream().time_base, _sampleRate) - _firstStamp;
  }
  if (_numbers != Numbers::counted && _numbers != Numbers::listed) return AV_NOPTS_VALUE;
  if (_nextCount < 0 && packet.pos >= 0) {
    const auto found = std::ranges::lower_bound(_places, static_cast<std::uint64_t>(packet.pos));
    if (found != _places.end() && *found == static_cast<std::uint64_t>(packet.pos)) {
      _nextCount = found - _places.begin();
    }
  }
  return _nextCount < 0 ? AV_NOPTS_VALUE : _nextCount++ * _frameSize;
}

bool PacketReader::seek(std::int64_t frame) noexcept {
  if (!_file || _numbers == Numbers::none) return false;
  if (_raw) {
    _raw->seek(frame);
    return true;
  }
  _file->renewBudget();
  if (_numbers == Numbers::stamped) {
    const std::int64_t stamp =
        av_rescale_q_rnd(frame + _firstStamp, {1, _sampleRate}, stream().time_base, AV_ROUND_DOWN);
    return av_seek_frame(&context(), stream().index, stamp, AVSEEK_FLAG_BACKWARD) >= 0;
  }
  makeIndex();
  if (!_file || _places.empty()) return false;
  const auto last = static_cast<std::int64_t>(_places.size()) - 1;
  const auto packet =
      static_cast<std::size_t>(std::clamp<std::int64_t>(frame / _frameSize, 0, last));
  _nextCount = -1;
  if (_numbers == Numbers::counted) {
    return av_seek_frame(&context(), -1, static_cast<std::int64_t>(_places[packet]),
                         AVSEEK_FLAG_BYTE) >= 0;
  }
  // Earlier by what the stamps may be off.
  const std::int64_t about = _firstStamp + std::min(frame, last * _frameSize) - _sampleRate / 250;
  const std::int64_t stamp = av_rescale_q(about, {1, _sampleRate}, stream().time_base);
  return av_seek_frame(&context(), stream().index, std::max(stamp, stream().start_time),
                       AVSEEK_FLAG_BACKWARD) >= 0;
}

bool PacketReader::rewind() noexcept {
  if (_raw) return seek(0);
  _nextCount = 0;
  _file.reset();
  try {
    auto opened = MediaFile::open(_bytes, _rules);
    if (opened) _file = std::move(opened).value();
  } catch (const std::bad_alloc&) {
    return false;
  }
  return _file != nullptr;
}

std::int64_t PacketReader::countPackets() noexcept {
  makeIndex();
  return _packetCount;
}

void PacketReader::makeIndex() noexcept {
  if (_isIndexed || !rewind()) return;
  _isIndexed = true;
  bool isComplete = false;
  try {
    isComplete = placePackets();
    _places.shrink_to_fit();
  } catch (const std::bad_alloc&) {
    isComplete = false;
  }
  if (!isComplete) {
    _places = {};
    if (_numbers == Numbers::listed) _numbers = Numbers::none;
  }
}

/// Of FLAC the second byte tells (RFC 9639, 9.1), of Opus the first (RFC 6716, 3.1), unless it
/// leaves the number of its parts open.
bool PacketReader::isOfOneSize(const AVPacket& packet) noexcept {
  if (_numbers == Numbers::listed && codec().codec_id == AV_CODEC_ID_FLAC) {
    return packet.size >= 2 && packet.data[1] == 0xF8;
  }
  if (_numbers != Numbers::listed || codec().codec_id != AV_CODEC_ID_OPUS) return true;
  if (packet.size < 1 || (packet.data[0] & 3) == 3) return false;
  if (_places.empty()) _firstByte = packet.data[0];
  // The bit of stereo makes no packet longer.
  return ((packet.data[0] ^ _firstByte) & ~4) == 0;
}

bool PacketReader::placePackets() {
  bool areRising = true;
  for (; readPacket(); ++_packetCount) {
    // Only what rises can be found again; packets that share a block of Matroska by its first.
    const auto place = static_cast<std::uint64_t>(_packet->pos);
    const std::uint64_t least = _places.empty()               ? 0
                                : _numbers == Numbers::listed ? _places.back()
                                                              : _places.back() + 1;
    areRising = areRising && _packet->pos >= 0 && place >= least && isOfOneSize(*_packet);
    if (areRising) _places.push_back(place);
  }
  return areRising;
}

}  // namespace velorin::media
