#include "engine/fill/SourceReader.h"

#include <algorithm>

namespace velorin {

SourceReader::SourceReader(std::unique_ptr<FileDecoder> decoder, SharedFacts facts,
                           std::unique_ptr<ResampleStage> resampler,
                           const StreamFormat& clientFormat)
    : _decoder(std::move(decoder)),
      _facts(std::move(facts)),
      _resampler(std::move(resampler)),
      _asFloat(_resampler != nullptr || !clientFormat.isInteger()),
      // The resampler takes float, whatever the client format.
      _decoded(clientFormat.channelsPerFrame, kBlockFrames,
               _resampler ? sizeof(float) : clientFormat.bytesPerFrame) {}

AudioBufferList& SourceReader::list() noexcept {
  return _resampler ? _resampler->output() : _decoded.list();
}

std::uint32_t SourceReader::chunk() const noexcept {
  return _resampler ? _resampler->chunk() : kBlockFrames;
}

SourceReader::Outcome SourceReader::read(std::uint32_t wanted) noexcept {
  _frames = 0;
  wanted = std::min(wanted, kBlockFrames);
  if (const std::int64_t end = _facts->bounds.end; end >= 1) {
    const std::int64_t remaining = end - _decoder->currentPosition();
    if (remaining <= 0) return Outcome::cueEnd;
    wanted = static_cast<std::uint32_t>(std::min<std::int64_t>(wanted, remaining));
  }
  _decoded.setFrames(kBlockFrames);
  const DecodeResult result = _decoder->read(_decoded.list(), wanted, _asFloat);
  if (result.status != 0) return Outcome::failed;
  if (result.frames == 0) return Outcome::endOfStream;
  if (_resampler) {
    _frames = _resampler->process(_decoded.list(), result.frames);
  } else {
    _decoded.setFrames(result.frames);
    _frames = result.frames;
  }
  return Outcome::produced;
}

bool SourceReader::drain() noexcept {
  _frames = _resampler ? _resampler->drain() : 0;
  return _frames > 0;
}

double SourceReader::seek(std::int64_t usec) noexcept {
  // In whole frames, so that a position asked for is met to the frame.
  const double rate = _facts->fileFormat.sampleRate;
  const CueBounds& bounds = _facts->bounds;
  std::int64_t frame = bounds.start + static_cast<std::int64_t>(static_cast<long double>(usec) *
                                                                rate / 1'000'000.0L);
  if (bounds.end >= 1) frame = std::min(frame, bounds.end);
  // A time past the end is the end: its last frame is the nearest that can be decoded.
  if (_facts->totalFrames > 0) frame = std::min(frame, _facts->totalFrames - 1);
  // A position that cannot be reached is dropped: of a file that was cut short, say.
  if (!_decoder->seek(frame)) frame = _decoder->currentPosition();
  if (_resampler) _resampler->clear();
  return static_cast<double>(std::max<std::int64_t>(0, frame - bounds.start)) / rate;
}

SourceReader::Place SourceReader::place() const noexcept {
  return {_decoder->currentPosition(),
          _resampler ? _resampler->progress() : ResampleStage::Progress{}};
}

void SourceReader::resumeAt(const Place& place) noexcept {
  const std::int64_t again =
      _resampler ? _resampler->resumeAt(place.resampler, place.fileFrame) : 0;
  _decoder->seek(place.fileFrame - again);
}

std::int64_t SourceReader::framesLeft() const noexcept {
  const std::int64_t end = _facts->bounds.end >= 1 ? _facts->bounds.end : _facts->totalFrames;
  if (end < 1) return -1;
  return std::max<std::int64_t>(0, end - _decoder->currentPosition());
}

}  // namespace velorin
