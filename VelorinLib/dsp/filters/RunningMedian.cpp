#include "dsp/filters/RunningMedian.h"

#include "platform/vector/Median.h"

namespace velorin {

void medianOf21(const float* in, float* out, std::size_t count) noexcept {
  vector::medianOf21(in, out, count);
}

}  // namespace velorin
