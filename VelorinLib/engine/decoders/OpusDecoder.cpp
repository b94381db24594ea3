#include "engine/decoders/OpusDecoder.h"

#include <algorithm>

#include "engine/decoders/FileHandle.h"
#include "engine/decoders/PlanarTarget.h"

namespace velorin {

OpusDecoder::Made OpusDecoder::create(const std::filesystem::path& path) {
  auto file = FileHandle::open(path);
  if (!file) return DecoderError{.text = file.error()};
  return create(std::move(file).value());
}

OpusDecoder::Made OpusDecoder::create(std::unique_ptr<ReadableFile> file) {
  auto stream = OpusStream::open(std::move(file));
  if (!stream) return stream.error();
  return std::unique_ptr<OpusDecoder>(new OpusDecoder(std::move(stream).value()));
}

OpusDecoder::OpusDecoder(std::unique_ptr<OpusStream> stream) noexcept
    : _stream(std::move(stream)),
      _channels(_stream->channels()),
      _totalFrames(_stream->totalFrames()) {}

DecoderInfo OpusDecoder::info() const {
  return {.name = "Opus Decoder", .library = "opusfile", .isLossless = false, .formatTag = "Opus"};
}

DecodeResult OpusDecoder::read(const AudioBufferList& target, std::uint32_t frames,
                               bool asFloat) noexcept {
  if (_stream == nullptr) return {.status = -1, .frames = 0};
  const std::size_t size = asFloat ? sizeof(float) : sizeof(std::int16_t);
  const std::uint32_t wanted = planar::framesThatFit(target, frames, size);
  std::uint32_t filled = 0;
  while (filled < wanted) {
    const std::uint32_t left = _stream->blockFrames() - _readOffset;
    if (left == 0) {
      _readOffset = 0;
      if (!_stream->decodeBlock(asFloat)) break;
      _silenceLeft = _stream->lostBefore();
      continue;
    }
    std::uint32_t count = wanted - filled;
    if (_silenceLeft > 0) {
      count = std::min(count, _silenceLeft);
      planar::silence(target, 0, filled, count, size);
      _silenceLeft -= count;
    } else {
      count = std::min(count, left);
      _stream->convertBlock(asFloat);
      convert(target, filled, count);
      _readOffset += count;
    }
    filled += count;
    _currentSample += count;
  }
  return {.status = 0, .frames = filled};
}

void OpusDecoder::convert(const AudioBufferList& target, std::uint32_t at,
                          std::uint32_t frames) const noexcept {
  const bool asFloat = _stream->blockIsFloat();
  const std::uint32_t both = std::min(target.bufferCount, _channels);
  const std::size_t first = std::size_t{_readOffset} * _channels;
  planar::silence(target, both, at, frames, asFloat ? sizeof(float) : sizeof(std::int16_t));
  for (std::uint32_t channel = 0; channel < both; ++channel) {
    const std::uint32_t place = _stream->blockChannel(channel);
    if (asFloat) {
      planar::takeChannel(_stream->floats() + first, _channels, place,
                          target.channel<float>(channel) + at, frames);
    } else {
      planar::takeChannel(_stream->int16s() + first, _channels, place,
                          target.channel<std::int16_t>(channel) + at, frames);
    }
  }
}

bool OpusDecoder::seek(std::int64_t frame) noexcept {
  if (_stream == nullptr) return false;
  const std::int64_t target = std::max<std::int64_t>(frame, 0);
  // Known to be past the end: refused before the block that is being read is dropped.
  if (target >= _totalFrames) return false;
  if (moveTo(target)) return true;
  // Back to where we were. Where that fails too, at the end of a file that was cut, reads give
  // nothing until a seek succeeds.
  moveTo(_currentSample);
  return false;
}

bool OpusDecoder::moveTo(std::int64_t frame) noexcept {
  _readOffset = 0;
  _silenceLeft = 0;
  if (!_stream->seek(frame)) return false;
  const std::int64_t ahead = frame - _stream->blockStart();
  if (ahead >= 0) {
    _readOffset = static_cast<std::uint32_t>(ahead);
  } else {
    _silenceLeft = static_cast<std::uint32_t>(-ahead);
  }
  _currentSample = frame;
  return true;
}

}  // namespace velorin
