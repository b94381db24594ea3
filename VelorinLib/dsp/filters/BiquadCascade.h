// A running cascade of second-order sections over several channels.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "dsp/filters/Biquad.h"

namespace velorin {

/// Sections in order, the same for every channel, with a state for each channel. Samples are
/// floats; coefficients, state and what passes between sections are doubles: in single precision a
/// section at 20 Hz and 384 kHz would be another filter. The state starts as silence.
///
/// Made and destroyed off the render thread; one thread at a time runs it.
class BiquadCascade {
 public:
  BiquadCascade(std::span<const BiquadCoefficients> sections, std::size_t channels);
  ~BiquadCascade();
  BiquadCascade(const BiquadCascade&) = delete;
  BiquadCascade& operator=(const BiquadCascade&) = delete;

  /// Filters every channel in place; `data` holds channels() pointers, none null. Real-time safe,
  /// as are the others below.
  void process(float* const* data, std::size_t frames) noexcept;

  /// Filters one stream in place with the state of that channel. In and out may be the same.
  void processChannel(std::size_t channel, const float* in, float* out,
                      std::size_t frames) noexcept;

  void reset() noexcept;

  std::size_t sections() const noexcept;
  std::size_t channels() const noexcept;

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
