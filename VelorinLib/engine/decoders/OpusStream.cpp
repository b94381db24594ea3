#include "engine/decoders/OpusStream.h"

#include <fmt/format.h>
#include <opus/opusfile.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "platform/vector/Vector.h"

namespace velorin {
namespace {

/// The longest packet, 120 ms. The library never decodes more at a time.
constexpr std::uint32_t kBlock = 5760;

/// Frames that are decoded ahead of a target and dropped. The format asks for 80 ms (RFC 7845,
/// section 4.6), after which noise is still off by a third; each further frame of the codec about
/// halves the difference, and after a second none is left in 32-bit floats.
constexpr std::int64_t kPreroll = 48'000;

// Seconds. A longer hole in the numbering is a header's lie rather than damage.
constexpr int kLongestLoss = 10;

/// Packets in a row that cannot be decoded, after which the stream counts as ended.
constexpr int kMostBadPackets = 100;

/// For each number of speakers, where each of them in the order of WAVE files is in that of Vorbis,
/// which Opus takes over (RFC 7845, section 5.1.1.2).
constexpr std::array<std::array<std::uint8_t, 8>, 9> kVorbisOrder = {{
    {},
    {0},
    {0, 1},
    {0, 2, 1},
    {0, 1, 2, 3},
    {0, 2, 1, 3, 4},
    {0, 2, 1, 5, 3, 4},
    {0, 2, 1, 6, 5, 3, 4},
    {0, 2, 1, 7, 5, 6, 3, 4},
}};

DecoderError openFailed(std::string text) {
  return {.kind = DecoderError::Kind::initFailed, .text = std::move(text)};
}

std::string reasonFor(int error) {
  switch (error) {
    case OP_ENOTFORMAT:
      return "this is no Opus file; give it the extension of its real format";
    case OP_EVERSION:
    case OP_EIMPL:
      return "the Opus file uses a feature that opusfile does not know; convert it to FLAC";
    default:
      return fmt::format("the Opus file is damaged (opusfile error {}); copy it again", error);
  }
}

/// Frames of `from` channels become frames of `to`, in place. Forward when they shrink and
/// backward when they grow, so that none is overwritten before it was read.
template <class Sample>
void remix(Sample* samples, std::uint32_t frames, std::uint32_t from, std::uint32_t to) {
  for (std::uint32_t i = 0; i < frames; ++i) {
    const std::uint32_t frame = to < from ? i : frames - 1 - i;
    const Sample* const in = samples + std::size_t{frame} * from;
    Sample* const out = samples + std::size_t{frame} * to;
    if (to == 1) {
      double sum = 0;
      for (std::uint32_t c = 0; c < from; ++c) sum += in[c];
      *out = static_cast<Sample>(sum / from);
      continue;
    }
    std::memmove(out, in, std::min(from, to) * sizeof(Sample));
    for (std::uint32_t c = from; c < to; ++c) out[c] = 0;
  }
}

}  // namespace

// The handle and the callbacks, which are called from C: nothing may be thrown through them.
struct OpusStream::Library {
  OggOpusFile* opusFile = nullptr;

  Library() = default;
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  ~Library() {
    if (opusFile != nullptr) op_free(opusFile);
  }

  static ReadableFile& fileOf(void* stream) noexcept { return *static_cast<ReadableFile*>(stream); }

  static int read(void* stream, unsigned char* data, int count) {
    if (count <= 0) return 0;
    return static_cast<int>(fileOf(stream).readInto(
        {reinterpret_cast<std::byte*>(data), static_cast<std::size_t>(count)}));
  }

  static int seek(void* stream, opus_int64 offset, int whence) {
    ReadableFile& file = fileOf(stream);
    const auto size = static_cast<std::int64_t>(file.size());
    const std::int64_t base = whence == SEEK_END   ? size
                              : whence == SEEK_CUR ? static_cast<std::int64_t>(file.offset())
                                                   : 0;
    std::int64_t target = 0;
    if (__builtin_add_overflow(base, offset, &target) || target < 0 || target > size) return -1;
    try {
      file.seek(static_cast<std::uint64_t>(target));
      return 0;
    } catch (const std::exception&) {
      return -1;
    }
  }

  static opus_int64 tell(void* stream) { return static_cast<opus_int64>(fileOf(stream).offset()); }

  static constexpr OpusFileCallbacks kCallbacks{read, seek, tell, nullptr};
};

OpusStream::~OpusStream() = default;

Result<std::unique_ptr<OpusStream>, DecoderError> OpusStream::open(
    std::unique_ptr<ReadableFile> file) {
  if (file == nullptr) return openFailed("there is no file to read");
  if (file->size() == 0) {
    return openFailed("the file is empty (0 bytes); copy it again from its source");
  }
  std::unique_ptr<OpusStream> stream(new OpusStream());
  stream->_file = std::move(file);
  stream->_library = std::make_unique<Library>();
  int error = 0;
  OggOpusFile* const opus =
      op_open_callbacks(stream->_file.get(), &Library::kCallbacks, nullptr, 0, &error);
  if (opus == nullptr) return openFailed(reasonFor(error));
  stream->_library->opusFile = opus;

  const int channels = op_channel_count(opus, 0);
  if (channels < 1 || channels > static_cast<int>(kMaxChannels)) {
    return openFailed(fmt::format("the Opus file has {} channels; up to {} can be played", channels,
                                  kMaxChannels));
  }
  stream->_channels = static_cast<std::uint32_t>(channels);
  stream->_hasSpeakers = op_head(opus, 0)->mapping_family <= 1 && channels <= 8;
  stream->_totalFrames = std::max<std::int64_t>(op_pcm_total(opus, -1), 0);
  stream->_scratchFloat.resize(std::size_t{kBlock} * stream->_channels);
  stream->_scratchInt16.resize(stream->_scratchFloat.size());
  return stream;
}

std::uint32_t OpusStream::blockChannel(std::uint32_t channel) const noexcept {
  return _hasSpeakers ? kVorbisOrder[_channels][channel] : channel;
}

int OpusStream::decode(bool asFloat, int& linkChannels) noexcept {
  OggOpusFile* const opus = _library->opusFile;
  const int samples = static_cast<int>(kBlock * _channels);
  if (_channels == 2) {
    linkChannels = 2;
    return asFloat ? op_read_float_stereo(opus, _scratchFloat.data(), samples)
                   : op_read_stereo(opus, _scratchInt16.data(), samples);
  }
  int link = 0;
  const int frames = asFloat ? op_read_float(opus, _scratchFloat.data(), samples, &link)
                             : op_read(opus, _scratchInt16.data(), samples, &link);
  if (frames > 0) linkChannels = op_channel_count(opus, link);
  return frames;
}

bool OpusStream::decodeBlock(bool asFloat) noexcept {
  _blockFrames = 0;
  _blockIsFloat = asFloat;
  _lostBefore = 0;
  int linkChannels = 0;
  int frames = OP_HOLE;
  for (int bad = 0; frames == OP_HOLE || frames == OP_EBADPACKET; ++bad) {
    if (bad > kMostBadPackets) return false;
    if (bad > 0) noteHole();
    frames = decode(asFloat, linkChannels);
  }
  if (frames <= 0) return false;
  _blockFrames = std::min(static_cast<std::uint32_t>(frames), kBlock);
  _next += _lostBefore + std::int64_t{_blockFrames};
  const auto from = static_cast<std::uint32_t>(linkChannels);
  if (from != _channels) {
    if (asFloat) {
      remix(_scratchFloat.data(), _blockFrames, from, _channels);
    } else {
      remix(_scratchInt16.data(), _blockFrames, from, _channels);
    }
  }
  return true;
}

void OpusStream::noteHole() noexcept {
  const std::int64_t now = op_pcm_tell(_library->opusFile);
  const std::int64_t lost = now - _next;
  const bool isBelievable = lost > 0 &&
                            lost <= std::int64_t{kLongestLoss} * static_cast<int>(kSampleRate) &&
                            now <= _totalFrames;
  if (isBelievable) _lostBefore = static_cast<std::uint32_t>(lost);
}

void OpusStream::convertBlock(bool asFloat) noexcept {
  if (_blockIsFloat == asFloat) return;
  _blockIsFloat = asFloat;
  const std::size_t samples = std::size_t{_blockFrames} * _channels;
  if (asFloat) {
    vector::int16ToFloat(_scratchInt16.data(), 1.0f / 32768, _scratchFloat.data(), samples);
    return;
  }
  for (std::size_t i = 0; i < samples; ++i) {
    const float sample = std::clamp(_scratchFloat[i] * 32768, -32768.0f, 32767.0f);
    _scratchInt16[i] = static_cast<std::int16_t>(std::lrint(sample));
  }
}

bool OpusStream::seek(std::int64_t frame) noexcept {
  _blockFrames = 0;
  _lostBefore = 0;
  const std::int64_t start = std::max<std::int64_t>(frame - kPreroll, 0);
  if (op_pcm_seek(_library->opusFile, start) != 0) return false;
  _next = start;
  while (_next < frame) {
    if (!decodeBlock(_blockIsFloat)) return false;
  }
  return true;
}

}  // namespace velorin
