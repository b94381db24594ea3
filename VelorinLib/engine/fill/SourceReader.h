// One open track, delivered block by block in the client's format: decoder, CUE bounds, resampler.
//
// The fill loop writes its blocks to the ring; a crossfade mixes those of two readers.
#pragma once

#include <cstdint>
#include <memory>

#include "engine/SourceFacts.h"
#include "engine/decoders/FillThreadDecoder.h"
#include "engine/resampling/ResampleStage.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

/// Engine queue before the fill thread runs, then the fill thread.
class SourceReader {
 public:
  /// Frames of one decode.
  static constexpr std::uint32_t kBlockFrames = 4096;

  /// Allocates every buffer that reading will need. `resampler` null: the file is at the client's
  /// rate. With a resampler the decoder is asked for float.
  SourceReader(std::unique_ptr<FileDecoder> decoder, SharedFacts facts,
               std::unique_ptr<ResampleStage> resampler, const StreamFormat& clientFormat);

  enum class Outcome {
    produced,     ///< a block stands in list(); of 0 frames while the resampler's filter fills
    cueEnd,       ///< the track's CUE end was reached; the file goes on
    endOfStream,  ///< the file has no more
    failed,       ///< it cannot be read
  };

  /// Decodes up to `wanted` (at most kBlockFrames) frames of the file, and not beyond the track's
  /// CUE end.
  Outcome read(std::uint32_t wanted = kBlockFrames) noexcept;

  /// One more piece of the resampler's tail; false when there is none left: the stream is then
  /// complete. Without a resampler at once false.
  bool drain() noexcept;

  /// The last block, at the client's format.
  AudioBufferList& list() noexcept;
  std::uint32_t frames() const noexcept { return _frames; }

  /// The most frames that a block can have.
  std::uint32_t chunk() const noexcept;

  /// Frames at the client's rate that belong to what was read but have not been delivered yet.
  std::int64_t framesOwed() const noexcept { return _resampler ? _resampler->framesOwed() : 0; }

  /// Moves to a time from the track's own start, no further than its last frame, and forgets what
  /// the resampler holds. Returns the time that was meant, in whole frames of the file; where the
  /// file cannot be moved the stream goes on from where it stands, and that time is returned.
  double seek(std::int64_t usec) noexcept;
  /// Moves the decoder alone: what the resampler holds is followed by the new place.
  bool moveTo(std::int64_t fileFrame) noexcept { return _decoder->seek(fileFrame); }

  /// Where the track's stream stands, its resampler included.
  struct Place {
    std::int64_t fileFrame = 0;
    ResampleStage::Progress resampler;
  };
  Place place() const noexcept;
  /// Goes on from where another reader of the track stood: the next frame is the one that the other
  /// would have delivered.
  void resumeAt(const Place& place) noexcept;

  const SourceFacts& facts() const noexcept { return *_facts; }
  /// Null but for one-bit audio.
  DSDSource* dsd() const noexcept { return _decoder->dsd(); }
  /// Goes on in the same file as another track of it.
  void setFacts(SharedFacts facts) noexcept { _facts = std::move(facts); }

  /// File frames to the track's end, of which the file knows; -1 when it does not tell.
  std::int64_t framesLeft() const noexcept;

  /// What the resampler holds is of no use any more: its tail was drained.
  void clearResampler() noexcept {
    if (_resampler) _resampler->clear();
  }

  /// Hands the resampler to the reader that goes on with it; this one delivers no more.
  std::unique_ptr<ResampleStage> releaseResampler() noexcept { return std::move(_resampler); }

 private:
  std::unique_ptr<FileDecoder> _decoder;
  SharedFacts _facts;
  std::unique_ptr<ResampleStage> _resampler;
  const bool _asFloat;
  PlanarBuffers _decoded;
  std::uint32_t _frames = 0;
};

}  // namespace velorin
