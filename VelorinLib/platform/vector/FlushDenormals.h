// Arithmetic without denormal numbers, which some processors handle a hundred times slower.
#pragma once

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

namespace velorin::vector {

/// While it lives, denormals count as 0 in what the calling thread computes, as operands and as
/// results: below 1.2e-38 in float, below 2.3e-308 in double. For code that feeds results back and
/// so fades into them. Costs a few nanoseconds; real-time safe. The compiler does not know: what it
/// covers must be function calls that are not inlined, such as those of Vector.h.
///
/// On x86; elsewhere it does nothing.
class FlushDenormals {
 public:
#if defined(__x86_64__)
  FlushDenormals() noexcept : _before(_mm_getcsr()) {
    constexpr unsigned kFlushToZero = 0x8000;
    constexpr unsigned kDenormalsAreZero = 0x0040;
    _mm_setcsr(_before | kFlushToZero | kDenormalsAreZero);
  }
  ~FlushDenormals() {
    _mm_setcsr(_before);
  }
#else
  FlushDenormals() noexcept {}
  ~FlushDenormals() {}
#endif
  FlushDenormals(const FlushDenormals&) = delete;
  FlushDenormals& operator=(const FlushDenormals&) = delete;

 private:
#if defined(__x86_64__)
  unsigned _before;
#endif
};

}  // namespace velorin::vector
