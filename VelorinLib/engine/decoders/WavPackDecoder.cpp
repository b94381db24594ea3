#include "engine/decoders/WavPackDecoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/decoders/FileHandle.h"
#include "engine/decoders/PlanarTarget.h"
#include "platform/vector/Vector.h"

namespace velorin {
namespace {

/// Frames unpacked at a time: small enough to be in the processor's cache when they are converted.
constexpr std::uint32_t kChunk = 1024;

}  // namespace

WavPackDecoder::Made WavPackDecoder::create(const std::filesystem::path& path) {
  auto file = FileHandle::open(path);
  if (!file) return DecoderError{.text = file.error()};
  auto correction = FileHandle::open(path.native() + "c");
  return create(std::move(file).value(),
                correction ? std::move(correction).value() : std::unique_ptr<FileHandle>());
}

WavPackDecoder::Made WavPackDecoder::create(std::unique_ptr<ReadableFile> file,
                                            std::unique_ptr<ReadableFile> correction) {
  auto stream = WavPackStream::open(std::move(file), std::move(correction));
  if (!stream) return stream.error();
  return std::unique_ptr<WavPackDecoder>(new WavPackDecoder(std::move(stream).value()));
}

WavPackDecoder::WavPackDecoder(std::unique_ptr<WavPackStream> stream)
    : _stream(std::move(stream)),
      _format(_stream->format()),
      _scratchBuffer(std::size_t{kChunk} * _format.channels),
      _plane(kChunk),
      _floatPlane(_format.isFloat ? kChunk : 0) {}

DecoderInfo WavPackDecoder::info() const {
  return {.name = "WavPack Decoder",
          .library = "libwavpack",
          .isLossless = _format.isLossless,
          .formatTag = "WavPack"};
}

DecodeResult WavPackDecoder::read(const AudioBufferList& target, std::uint32_t frames,
                                  bool asFloat) noexcept {
  if (_stream == nullptr) return {.status = -1, .frames = 0};
  const std::uint32_t wanted = planar::framesThatFit(target, frames, sampleSize(asFloat));
  std::uint32_t filled = 0;
  while (filled < wanted) {
    const std::uint32_t asked = std::min(kChunk, wanted - filled);
    const std::uint32_t got = _stream->unpack(_scratchBuffer.data(), asked);
    convert(target, filled, got, asFloat);
    filled += got;
    _currentSample += got;
    if (got < asked) break;
  }
  return {.status = 0, .frames = filled};
}

std::size_t WavPackDecoder::sampleSize(bool asFloat) const noexcept {
  return !asFloat && _format.bitsPerSample <= 16 ? 2 : 4;
}

void WavPackDecoder::convert(const AudioBufferList& target, std::uint32_t at, std::uint32_t frames,
                             bool asFloat) noexcept {
  const std::size_t size = sampleSize(asFloat);
  const std::uint32_t both = std::min(target.bufferCount, _format.channels);
  planar::silence(target, both, at, frames, size);
  for (std::uint32_t channel = 0; channel < both; ++channel) {
    planar::takeChannel(_scratchBuffer.data(), _format.channels, channel, _plane.data(), frames);
    void* const out = target.channel<std::byte>(channel) + at * size;
    if (_format.isFloat) {
      convertFloat(out, frames, asFloat);
    } else {
      convertInteger(out, frames, asFloat);
    }
  }
}

void WavPackDecoder::convertInteger(void* out, std::uint32_t frames, bool asFloat) noexcept {
  const unsigned bits = _format.containerBits;
  std::int32_t* const plane = _plane.data();
  if (bits < 32) {
    // A crafted or damaged block can unpack to values beyond its own depth.
    const std::int32_t high = (std::int32_t{1} << (bits - 1)) - 1;
    vector::clipInt32(plane, -high - 1, high, plane, frames);
  }
  if (asFloat) {
    const float scale = std::ldexp(1.0f, 1 - static_cast<int>(bits));
    vector::int32ToFloat(plane, scale, static_cast<float*>(out), frames);
  } else if (_format.bitsPerSample > 16) {
    vector::shiftLeftInt32(plane, 32 - bits, static_cast<std::int32_t*>(out), frames);
  } else {
    // 16 bits or less may come in a wider container.
    if (bits > 16) vector::shiftRightInt32(plane, bits - 16, plane, frames);
    vector::shiftLeftToInt16(plane, bits < 16 ? 16 - bits : 0, static_cast<std::int16_t*>(out),
                             frames);
  }
}

void WavPackDecoder::convertFloat(void* out, std::uint32_t frames, bool asFloat) noexcept {
  if (asFloat) {
    std::memcpy(out, _plane.data(), frames * sizeof(float));
    return;
  }
  std::memcpy(_floatPlane.data(), _plane.data(), frames * sizeof(float));
  vector::floatToInt32(_floatPlane.data(), 32, static_cast<std::int32_t*>(out), frames);
}

bool WavPackDecoder::seek(std::int64_t frame) noexcept {
  if (_stream == nullptr) return false;
  const std::int64_t target = std::max<std::int64_t>(frame, 0);
  // Known to be past the end: refused before the library loses its place.
  if (_format.totalFrames > 0 && target >= _format.totalFrames) return false;
  if (_stream->seek(target)) {
    _currentSample = target;
    return true;
  }
  // Back to where we were. Where that fails too, at the end of a file that was cut, reads give
  // nothing until a seek succeeds.
  _stream->seek(_currentSample);
  return false;
}

}  // namespace velorin
