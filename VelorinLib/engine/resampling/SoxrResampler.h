// Sample-rate conversion by libsoxr, one independent converter per channel.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct soxr;

namespace velorin {

/// Linear phase, 29-bit precision, passband to 0.98 of the lower Nyquist frequency, double in and
/// out. bench/ResamplerBench.cpp measures what that gives.
///
/// The output is aligned with the input in time: the filter's delay shows as calls without output
/// at the start and as a tail to be drained at the end, never as a shift. A stream of n frames
/// gives round(n × ratio) frames, at most one more or less, in all.
///
/// One thread at a time: the engine queue, then the fill thread. Not for the render thread: the
/// library's own buffers may grow.
class SoxrResampler {
 public:
  /// Most frames that one process() call takes.
  static constexpr std::uint32_t kMaximumInput = 4096;

  /// The widest conversion, up or down. Real rates (8 kHz to 768 kHz) stay far within.
  static constexpr double kMaximumRatio = 256;

  /// Rates in Hz. Null when there is nothing to do (the rates differ by no more than 0.01 Hz), a
  /// rate is not a positive number, the ratio is beyond kMaximumRatio, there is no channel, or
  /// memory is short.
  static std::unique_ptr<SoxrResampler> create(double sourceRate, double targetRate,
                                               std::uint32_t channels);
  ~SoxrResampler();
  SoxrResampler(const SoxrResampler&) = delete;
  SoxrResampler& operator=(const SoxrResampler&) = delete;

  double sourceRate() const noexcept { return _sourceRate; }
  double targetRate() const noexcept { return _targetRate; }
  std::uint32_t channels() const noexcept { return static_cast<std::uint32_t>(_channels.size()); }
  double ratio() const noexcept { return _targetRate / _sourceRate; }

  /// Upper bound of the frames that process() gives for so many input frames, and of those that
  /// one drain() call gives when it is asked for kMaximumInput.
  std::uint32_t maximumOutput(std::uint32_t inputFrames) const noexcept;

  /// Converts up to kMaximumInput frames of a channel (of more, the first kMaximumInput). The
  /// result belongs to this object and is valid until the next call for any channel; empty while
  /// the filter fills. Channels that are given the same counts give the same counts. How a stream
  /// is cut into calls does not change a bit of it.
  std::span<const double> process(std::uint32_t channel, const double* input,
                                  std::uint32_t frames) noexcept;

  /// After the last input: a piece of the channel's tail, up to `maximum` frames; empty when the
  /// stream is complete. From the first call on, process() takes nothing until clear().
  std::span<const double> drain(std::uint32_t channel, std::uint32_t maximum) noexcept;

  /// Every channel as if fresh.
  void clear() noexcept;

 private:
  struct Free {
    void operator()(soxr* converter) const noexcept;
  };
  struct Channel {
    std::unique_ptr<soxr, Free> converter;
    bool isDraining = false;
  };

  SoxrResampler(double sourceRate, double targetRate) noexcept
      : _sourceRate(sourceRate), _targetRate(targetRate) {}

  const double _sourceRate;
  const double _targetRate;
  std::vector<Channel> _channels;
  std::vector<double> _output;
};

}  // namespace velorin
