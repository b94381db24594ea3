// The fill side of track changes: makes joins, watches them until they are heard, takes them back.
#pragma once

#include <cstdint>
#include <optional>

#include "engine/PlaybackSession.h"
#include "engine/joins/GaplessJoin.h"

namespace velorin {

/// Fill thread (or the engine queue before it runs). Changes `source` and `reader` of the session.
class TrackJoins {
 public:
  explicit TrackJoins(PlaybackSession& session) : _session(session) {}

  /// Why the source gives no more.
  enum class EndCause { cueEnd, endOfStream, failed };

  /// What the wish of the moment makes of the source's end; empty when it is to play out. Changes
  /// nothing in the stream.
  std::optional<PreparedJoin> prepare(EndCause cause) const;

  /// Makes the join: its first frame stands behind all frames of the old source, also behind those
  /// that a resampler which goes on still holds. `isDrained`: it holds none any more.
  void commit(PreparedJoin prepared, bool isDrained);

  /// Once per pass. Announces a join whose first frame was rendered, and takes one back when
  /// another track is wished for and nothing of the join was heard. True when it did that: the old
  /// source is then at its end as it was before, with all its frames in the ring and its file
  /// closed.
  bool watch();

  /// A seek is about to be done. A join that waits is announced now, and the seek is one in the new
  /// track; with a jump to another track it is given up.
  void beforeSeek(bool isJump);

  /// The join's first frame is not in the ring yet but in the resampler.
  bool owesBoundary() const noexcept;

 private:
  /// A join that waits to be heard.
  struct Decoded {
    NextTrack::Wish wish;
    std::uint64_t seenVersion = 0;  ///< of the wishes: this one was compared with `wish`
    SharedFacts from;
    SharedFacts to;
    std::int64_t cutFrame = 0;  ///< the first frame that sounds of the new track
  };

  void announce();

  PlaybackSession& _session;
  std::optional<Decoded> _decoded;
};

}  // namespace velorin
