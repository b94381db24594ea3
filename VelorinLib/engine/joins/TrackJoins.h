// The fill side of track changes: makes joins, watches them until they are heard, takes them back.
#pragma once

#include <cstdint>
#include <optional>

#include "engine/PlaybackSession.h"
#include "engine/joins/CrossfadeJoin.h"
#include "engine/joins/GaplessJoin.h"

namespace velorin {

/// Fill thread (or the engine queue before it runs). Changes `source` and `reader` of the session.
class TrackJoins {
 public:
  explicit TrackJoins(PlaybackSession& session) : _session(session), _crossfade(session) {}

  /// Why the source gives no more.
  enum class EndCause { cueEnd, endOfStream, failed };

  /// What the wish of the moment makes of the source's end; empty when it is to play out. Changes
  /// nothing in the stream.
  std::optional<PreparedJoin> prepare(EndCause cause) const;

  /// Makes the join: its first frame stands behind all frames of the old source, also behind those
  /// that a resampler which goes on still holds. `isDrained`: it holds none any more.
  void commit(PreparedJoin prepared, bool isDrained);

  /// `startCrossfade`; nothing changes where the track cannot be faded into.
  void crossfadeTo(const NextTrack::Wish& wish);
  /// `finishCrossfade`: the new source gives no more, not even from its resampler.
  void finishCrossfade();
  /// The fades of this stream.
  CrossfadeJoin& crossfade() noexcept { return _crossfade; }

  /// What has become of the source.
  enum class Watched {
    same,
    backAtEnd,   ///< the old one again, at its end as before: all its frames in the ring, its file
                 ///< closed
    backInside,  ///< the old one again, where it was to be faded out
  };
  /// Once per pass. Announces a join whose frame of announcement was rendered, and takes one back
  /// when another track is wished for and nothing of the join was heard.
  Watched watch();

  /// A seek is about to be done. It is one in the track that is heard: a track that waits behind it
  /// or fades in gives way, and may be joined again at the end. With a jump to another track all is
  /// given up. True when `source` is another one now than that which is read.
  bool beforeSeek(bool isJump);

  /// The stream is as that version of the wish wants it, as far as that can be by now.
  bool hasAnswered(std::uint64_t wishVersion) const noexcept {
    return !_decoded || _decoded->seenVersion == wishVersion || owesBoundary();
  }

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
  Watched takeBack(std::uint64_t version);
  bool isFade() const noexcept { return _decoded && _decoded->to->join == Join::crossfade; }

  PlaybackSession& _session;
  CrossfadeJoin _crossfade;
  std::optional<Decoded> _decoded;
};

}  // namespace velorin
