// The track that fades out: as many frames of it as the other side has, no more, no fewer.
#pragma once

#include <cstdint>
#include <memory>

#include "engine/fill/SourceReader.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

/// Both sides of a mix are streams of frames at the client rate, but they come in blocks of their
/// own size: a resampler gives nothing while its filter fills, then more than was put in. What this
/// side has too much of waits here, so that frame i of one side always meets frame i of the other.
///
/// Fill thread only.
class CrossfadeOldSide {
 public:
  /// Goes on with the reader where it stands, its resampler still holding the last frames.
  /// `largestTake` is the most that take() will be asked for. Throws std::bad_alloc.
  CrossfadeOldSide(std::unique_ptr<SourceReader> reader, const StreamFormat& clientFormat,
                   std::uint32_t largestTake);

  /// The next frames of the track in list(): so many, or fewer when the track ends. A file that
  /// cannot be read any further has ended.
  std::uint32_t take(std::uint32_t frames) noexcept;
  const AudioBufferList& list() noexcept { return _held.list(); }

  const SourceReader& reader() const noexcept { return *_reader; }
  /// Gives the track back; this side has ended.
  std::unique_ptr<SourceReader> release() noexcept { return std::move(_reader); }

 private:
  /// Appends what the reader gives next; false when there is nothing left.
  bool readMore() noexcept;
  void dropTaken() noexcept;

  std::unique_ptr<SourceReader> _reader;
  const std::uint32_t _channels;
  PlanarBuffers _held;  ///< frames read and not dropped
  std::uint32_t _heldFrames = 0;
  std::uint32_t _takenFrames = 0;  ///< of these, handed out by the last take()
  bool _isDraining = false;
};

}  // namespace velorin
