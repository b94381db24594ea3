#include "engine/decoders/FLACDecoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/decoders/FileHandle.h"
#include "platform/vector/Vector.h"

namespace velorin {

FLACDecoder::Made FLACDecoder::create(const std::filesystem::path& path) {
  auto file = FileHandle::open(path);
  if (!file) return DecoderError{.text = file.error()};
  return create(std::move(file).value());
}

FLACDecoder::Made FLACDecoder::create(std::unique_ptr<ReadableFile> file) {
  auto stream = FLACStream::open(std::move(file));
  if (!stream) return stream.error();
  return std::unique_ptr<FLACDecoder>(new FLACDecoder(std::move(stream).value()));
}

FLACDecoder::FLACDecoder(std::unique_ptr<FLACStream> stream) noexcept
    : _stream(std::move(stream)), _format(_stream->format()) {}

DecoderInfo FLACDecoder::info() const {
  return {.name = "FLAC Decoder", .library = "libFLAC", .isLossless = true, .formatTag = "FLAC"};
}

DecodeResult FLACDecoder::read(const AudioBufferList& target, std::uint32_t frames,
                               bool asFloat) noexcept {
  if (_stream == nullptr) return {.status = -1, .frames = 0};
  std::uint32_t wanted = frames;
  for (std::uint32_t i = 0; i < target.bufferCount; ++i) {
    wanted = std::min(wanted, target.buffers[i].byteSize / sampleSize(asFloat));
  }
  std::uint32_t filled = 0;
  while (filled < wanted && !_isEOF) {
    const std::uint32_t left = _stream->blockFrames() - _readOffset;
    if (left == 0) {
      nextBlock();
      continue;
    }
    std::uint32_t count = wanted - filled;
    if (_silenceLeft > 0) {
      count = std::min(count, _silenceLeft);
      silence(target, 0, filled, count, asFloat);
      _silenceLeft -= count;
    } else {
      count = std::min(count, left);
      convert(target, filled, count, asFloat);
      _readOffset += count;
    }
    filled += count;
    _currentSample += count;
  }
  return {.status = 0, .frames = filled};
}

void FLACDecoder::nextBlock() noexcept {
  _readOffset = 0;
  _silenceLeft = 0;
  _isEOF = !_stream->decodeBlock();
  if (_isEOF) return;
  if (_isLost) {
    findPosition();
  } else {
    _silenceLeft = _stream->lostBefore();
  }
}

std::uint32_t FLACDecoder::sampleSize(bool asFloat) const noexcept {
  return !asFloat && _format.bitsPerSample <= 16 ? 2 : 4;
}

void FLACDecoder::convert(const AudioBufferList& target, std::uint32_t at, std::uint32_t frames,
                          bool asFloat) const noexcept {
  const unsigned bits = _format.bitsPerSample;
  const std::uint32_t both = std::min(target.bufferCount, _format.channels);
  silence(target, both, at, frames, asFloat);
  for (std::uint32_t channel = 0; channel < both; ++channel) {
    const std::int32_t* const samples = _stream->block(channel).data() + _readOffset;
    if (asFloat) {
      const float scale = std::ldexp(1.0f, 1 - static_cast<int>(bits));
      vector::int32ToFloat(samples, scale, target.channel<float>(channel) + at, frames);
    } else if (bits <= 16) {
      vector::shiftLeftToInt16(samples, 16 - bits, target.channel<std::int16_t>(channel) + at,
                               frames);
    } else {
      vector::shiftLeftInt32(samples, 32 - bits, target.channel<std::int32_t>(channel) + at,
                             frames);
    }
  }
}

void FLACDecoder::silence(const AudioBufferList& target, std::uint32_t firstChannel,
                          std::uint32_t at, std::uint32_t frames, bool asFloat) const noexcept {
  const std::size_t size = sampleSize(asFloat);
  for (std::uint32_t channel = firstChannel; channel < target.bufferCount; ++channel) {
    std::memset(target.channel<std::byte>(channel) + at * size, 0, frames * size);
  }
}

bool FLACDecoder::seek(std::int64_t frame) noexcept {
  if (_stream == nullptr) return false;
  const std::int64_t target = std::max<std::int64_t>(frame, 0);
  // Known to be past the end: refused before libFLAC drops the block that is being read.
  if (_format.totalFrames > 0 && target >= _format.totalFrames) return false;
  if (_stream->seek(static_cast<std::uint64_t>(target))) {
    _readOffset = 0;
    _silenceLeft = 0;
    _currentSample = target;
    _isEOF = false;
    _isLost = false;
    return true;
  }
  // Back to where we were, so that the position that is still reported stays true. Where this fails
  // as well, at the very end for one, read() looks for the position among the blocks that follow.
  _readOffset = 0;
  _silenceLeft = 0;
  _isLost = !_stream->seek(static_cast<std::uint64_t>(_currentSample));
  return false;
}

void FLACDecoder::findPosition() noexcept {
  const std::int64_t start = _stream->blockStart();
  const std::int64_t end = start + _stream->blockFrames();
  if (end <= _currentSample) {
    _readOffset = _stream->blockFrames();  // all of it was delivered before
    return;
  }
  _readOffset = static_cast<std::uint32_t>(std::max<std::int64_t>(_currentSample - start, 0));
  _currentSample = std::max(_currentSample, start);
  _isLost = false;
}

}  // namespace velorin
