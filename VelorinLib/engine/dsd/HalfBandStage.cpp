#include "engine/dsd/HalfBandStage.h"

#include <algorithm>
#include <cstring>

#include "platform/vector/HalfBand.h"
#include "platform/vector/PCMPacking.h"

namespace velorin {
namespace {

constexpr vector::HalfBandTaps kTaps = {.pairs = {-0.000347065768f, 0.00251381611f, -0.0101603586f,
                                                  0.0305545703f, -0.0819836035f, 0.309419751f},
                                        .centre = 0.5f};

}  // namespace

HalfBandStage::HalfBandStage(std::size_t longestRun)
    : _even(kEvenHistory + longestRun / 2 + 1), _odd(kOddHistory + longestRun / 2 + 1) {}

std::size_t HalfBandStage::process(const float* in, std::size_t count, float* out) noexcept {
  if (count == 0) return 0;
  float* even = _even.data() + kEvenHistory;
  float* odd = _odd.data() + kOddHistory;
  std::size_t outputs = 0;
  if (_hasSingle) {
    ++even;
    *odd++ = *in++;
    --count;
    ++outputs;
  }
  const std::size_t pairs = count / 2;
  float* const planes[] = {even, odd};
  vector::deinterleave(reinterpret_cast<const std::byte*>(in), vector::PCMWord::float32, 2, pairs,
                       planes);
  outputs += pairs;
  _hasSingle = count % 2 != 0;
  if (_hasSingle) even[pairs] = in[count - 1];
  vector::halfBand(_even.data(), _odd.data(), kTaps, out, outputs);
  const std::size_t kept = kEvenHistory + (_hasSingle ? 1 : 0);
  std::memmove(_even.data(), _even.data() + outputs, kept * sizeof(float));
  std::memmove(_odd.data(), _odd.data() + outputs, kOddHistory * sizeof(float));
  return outputs;
}

void HalfBandStage::reset() noexcept {
  std::fill_n(_even.begin(), kEvenHistory, 0.0f);
  std::fill_n(_odd.begin(), kOddHistory, 0.0f);
  _hasSingle = false;
}

void HalfBandStage::continueFrom(const HalfBandStage& before) noexcept {
  std::copy_n(before._even.begin(), kEvenHistory + 1, _even.begin());
  std::copy_n(before._odd.begin(), kOddHistory, _odd.begin());
  _hasSingle = before._hasSingle;
}

}  // namespace velorin
