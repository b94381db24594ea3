// A delay that is read as a plain run of memory.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

#include "platform/vector/Vector.h"

namespace velorin {

/// The last kHistory samples of a stream and those after them side by side. What is read never
/// wraps, so that a delay is work for platform/vector. Silence before the first sample.
template <std::size_t kHistory>
class DelayLine {
 public:
  static constexpr std::size_t kMaxRun = 1024;

  /// Takes up a run of at most kMaxRun samples and returns where its first one lies: `d` places
  /// before a sample lies the one d samples older, for d up to kHistory. Valid until the next call.
  const float* append(const float* in, std::size_t count) noexcept {
    if (_end + count > _samples.size()) {
      const float* const last = _samples.data() + (_end - kHistory);
      std::copy(last, last + kHistory, _samples.data());
      _end = kHistory;
    }
    float* const first = _samples.data() + _end;
    std::copy_n(in, count, first);
    _end += count;
    return first;
  }

  void reset() noexcept {
    _samples.fill(0);
    _end = kHistory;
  }

 private:
  // Twice the history, so that moving it costs a copy of a sample for each one at most.
  std::array<float, 2 * kHistory + kMaxRun> _samples{};
  std::size_t _end = kHistory;
};

/// A delay of part of a sample: between two whole ones, in a straight line.
struct FractionalDelay {
  std::size_t newer = 0;
  std::size_t older = 0;
  float fraction = 0;  ///< of the older one

  /// out[i] = (1 - fraction) newer + fraction older; without a fraction just the newer one. `at` is
  /// what DelayLine::append() returned for these samples. Real-time safe.
  void read(const float* at, float* out, std::size_t count) const noexcept {
    if (fraction == 0) {
      std::copy_n(at - newer, count, out);
    } else {
      vector::weightedSum(at - newer, 1 - fraction, at - older, fraction, out, count);
    }
  }
};

}  // namespace velorin
