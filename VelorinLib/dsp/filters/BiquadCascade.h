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
/// The output is that of the transposed direct form II, one section after the other, to the bit:
/// for every block size, number of channels and instruction set (platform/vector/BiquadKernels.h).
///
/// No input harms for longer than its block. When a channel's state is not finite at the end of a
/// call (NaN or infinity came in, or a section is unstable), that channel starts from silence with
/// the next call; what comes out until then is NaN or infinite. Denormals count as 0 on both sides
/// and within, so a fading tail slows nothing. Without sections the samples stay as they are.
///
/// Made and destroyed off the render thread; one thread at a time runs it. Two channels take the
/// time of one: 31 sections some 20 ns a frame, a few sections 4 ns.
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

  /// Goes on from where another cascade of as many sections and channels is.
  void takeState(const BiquadCascade& other) noexcept;

  std::size_t sections() const noexcept;
  std::size_t channels() const noexcept;

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
