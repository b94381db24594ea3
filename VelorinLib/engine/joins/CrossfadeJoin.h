// The crossfades of one stream: when one begins, how the next track comes in, how it is undone.
//
// The fill thread runs ahead of the listener by what the ring holds, so a mix is made, and its old
// file closed, long before it is heard. Until the first of its frames is rendered it can be taken
// back: the ring is cut to where the mix begins and the old track goes on from that very frame.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "engine/PlaybackSession.h"
#include "engine/joins/Crossfade.h"

namespace velorin {

/// Fill thread. Changes `source` and `reader` of the session, writes to its ring.
class CrossfadeJoin {
 public:
  explicit CrossfadeJoin(PlaybackSession& session) : _session(session) {}

  /// What may happen to the source before its next block.
  struct Outlook {
    enum class Step { read, wait, start };
    Step step = Step::read;
    std::uint32_t frames = SourceReader::kBlockFrames;  ///< of read: file frames, at most
    NextTrack::Wish wish;                               ///< of start
  };
  /// `shouldStartCrossfade`, and what leads up to it. A fade begins where `crossfadeDuration` is
  /// left of the track, to the frame, so that the two end together. While there is nothing to fade
  /// to, the rest of the track is left undecoded for as long as the ring lasts well beyond it.
  Outlook outlook() const;

  /// What a fade that begins changes.
  struct Begun {
    SharedFacts from;
    SharedFacts to;
    std::int64_t cutFrame = 0;  ///< ring frame of its first mixed frame
  };
  /// `startCrossfade`: opens the track and makes it the session's source. Empty, with nothing
  /// changed, when it cannot be opened or does not fit the stream; that wish is not tried again.
  std::optional<Begun> start(const NextTrack::Wish& wish);

  /// `crossfadeActive`: two tracks are open.
  bool isActive() const noexcept { return _fade.has_value(); }

  /// Writes the session's reader's block to the ring, mixed while a fade is under way.
  void write();

  /// `finishCrossfade`: closes the old track. A new one that ended before the fade, and before the
  /// frame at which it was to be announced, is announced at the last frame of the mix.
  void finish(bool wasAnnounced = true);

  // Of the fade that was begun last, as long as its new track was not announced:

  /// Undoes it before it is heard: the old track is the source again, from the first mixed frame
  /// on. False, with nothing changed, when that was rendered or the old file is gone. `reach` as
  /// PositionClock::revoke() takes it.
  bool takeBack(std::int64_t reach);

  /// `cancelCrossfade`, for a seek while the old track is announced: it is the source again, at no
  /// certain place. False, with nothing changed, when its file is gone.
  bool cancel();

 private:
  bool mayWait() const noexcept;
  void announceAt(std::int64_t framesIntoFade);
  std::int64_t announcement(std::int64_t total) const noexcept;
  void goBack(std::unique_ptr<SourceReader> old);

  PlaybackSession& _session;
  std::optional<Crossfade> _fade;
  Begun _latest;
  SourceReader::Place _oldPlace;                 ///< of the old track at `_latest.cutFrame`
  std::optional<std::uint64_t> _refusedVersion;  ///< of the wish that start() could not fulfil
};

}  // namespace velorin
