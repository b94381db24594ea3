// A crossfade under way: two tracks open at once, from its start to its finish.
#pragma once

#include <cstdint>
#include <memory>

#include "engine/joins/CrossfadeMixer.h"
#include "engine/joins/CrossfadeOldSide.h"

namespace velorin {

/// Holds the old track and blends it into the blocks of the new one. Fill thread only.
class Crossfade {
 public:
  /// `older` goes on where it stands. The fade is `framesTotal` frames long at the client rate,
  /// whatever the rates of the two files. `largestBlock`: the most frames of one mix().
  Crossfade(std::unique_ptr<SourceReader> older, const StreamFormat& clientFormat,
            std::int64_t framesTotal, std::uint32_t largestBlock)
      : _oldSide(std::move(older), clientFormat, largestBlock), _mixer(clientFormat, framesTotal) {}

  /// Blends the old track's next frames into a block of the new one.
  void mix(AudioBufferList& newer, std::uint32_t frames) noexcept {
    const std::uint32_t ofOld = _oldSide.take(frames);
    _mixer.mix(newer, frames, _oldSide.list(), ofOld);
  }

  /// `crossfadeFramesTotal`, `crossfadeFramesWritten`.
  std::int64_t framesTotal() const noexcept { return _mixer.framesTotal(); }
  std::int64_t framesWritten() const noexcept { return _mixer.framesWritten(); }
  bool isComplete() const noexcept { return _mixer.isComplete(); }

  /// Gives the old track back; this fade is over.
  std::unique_ptr<SourceReader> release() noexcept { return _oldSide.release(); }

 private:
  CrossfadeOldSide _oldSide;
  CrossfadeMixer _mixer;
};

}  // namespace velorin
