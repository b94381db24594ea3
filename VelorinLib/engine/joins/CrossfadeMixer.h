// The arithmetic of a crossfade: two streams into one, with equal power.
//
// Frame k of a fade of n frames lies at t = min(1, k / n) and is
//   sqrt(t) * new + sqrt(1 - t) * old
// so that the squares of the two gains add up to 1 everywhere: the loudness of unrelated music
// stays even, where a linear fade has a hole of 3 dB in its middle.
#pragma once

#include <cstdint>

#include "platform/audio/StreamFormat.h"

namespace velorin {

/// Mixes planar blocks at the client format, one fade from its first frame to its last. Neither
/// allocates nor locks. One thread at a time.
class CrossfadeMixer {
 public:
  /// Frames whose gains are worked out at a time, once for all channels.
  static constexpr std::uint32_t kRun = 512;

  /// `clientFormat`: planar, 32-bit float or signed integers of 2 or 4 bytes. `framesTotal`: the
  /// fade's length in client frames; below 1 is no fade, all of it new.
  CrossfadeMixer(const StreamFormat& clientFormat, std::int64_t framesTotal) noexcept;

  /// Mixes the next frames of the fade into `newer`, whose buffers have room for the larger of the
  /// two counts, sets their byte sizes and returns that count. Past its count a side is silence;
  /// the counts are 0 or more, and a side of count 0 is not looked at.
  ///
  /// Both lists have the client format's channels. Floats are mixed in 32-bit float and stored as
  /// they are. Integers are mixed as raw integers and truncated toward zero, within their range:
  /// 32-bit words in 64-bit float, 16-bit words in 32-bit float.
  std::uint32_t mix(AudioBufferList& newer, std::uint32_t newerFrames, const AudioBufferList& older,
                    std::uint32_t olderFrames) noexcept;

  std::int64_t framesTotal() const noexcept { return _framesTotal; }
  /// Frames mixed so far; past the total when the last block reached beyond it.
  std::int64_t framesWritten() const noexcept { return _framesWritten; }
  bool isComplete() const noexcept { return _framesWritten >= _framesTotal; }

 private:
  template <class Real>
  void findGains(std::int64_t from, std::uint32_t count, Real* newer, Real* older) const noexcept;
  template <class Sample, class Real>
  void mixAs(const AudioBufferList& newer, std::uint32_t newerFrames, const AudioBufferList& older,
             std::uint32_t olderFrames) noexcept;

  const std::uint32_t _channels;
  const std::uint32_t _sampleSize;
  const bool _isFloat;
  const std::int64_t _framesTotal;
  std::int64_t _framesWritten = 0;
};

}  // namespace velorin
