// Sample-rate conversion by libsoxr, one independent converter per channel.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct soxr;

namespace velorin {

/// Linear phase, 29-bit precision (stopband of at least 174 dB), passband to 0.98 of the lower
/// Nyquist frequency, double in and out. The output is aligned with the input in time: the
/// filter's delay shows as blocks without output at the start and as a tail at the end, never as
/// a gap. One thread at a time; engine queue, then fill thread.
class SoxrResampler {
 public:
  /// Most frames that one process() call takes.
  static constexpr std::uint32_t kMaximumInput = 4096;

  /// Rates in Hz. Null when they differ by no more than 0.01 Hz, are not above 0, or the ratio is
  /// beyond what the library converts.
  static std::unique_ptr<SoxrResampler> create(double sourceRate, double targetRate,
                                               std::uint32_t channels);
  ~SoxrResampler();
  SoxrResampler(const SoxrResampler&) = delete;
  SoxrResampler& operator=(const SoxrResampler&) = delete;

  double sourceRate() const noexcept { return _sourceRate; }
  double targetRate() const noexcept { return _targetRate; }
  std::uint32_t channels() const noexcept { return static_cast<std::uint32_t>(_converters.size()); }
  double ratio() const noexcept { return _targetRate / _sourceRate; }

  /// Upper bound of the frames that process() gives for so many input frames.
  std::uint32_t maximumOutput(std::uint32_t inputFrames) const noexcept;

  /// Converts up to kMaximumInput frames of a channel. The result belongs to this object and is
  /// valid until the next call for any channel; empty while the filter fills.
  std::span<const double> process(std::uint32_t channel, const double* input,
                                  std::uint32_t frames) noexcept;

  /// After the last input: a piece of the channel's tail, up to `maximum` frames; empty when the
  /// stream is complete. clear() must follow before the next process().
  std::span<const double> drain(std::uint32_t channel, std::uint32_t maximum) noexcept;

  /// Every channel as if fresh.
  void clear() noexcept;

 private:
  SoxrResampler(double sourceRate, double targetRate);
  std::span<const double> run(std::uint32_t channel, const double* input, std::uint32_t frames,
                              std::size_t room) noexcept;

  double _sourceRate;
  double _targetRate;
  std::vector<struct soxr*> _converters;
  std::vector<double> _output;
};

}  // namespace velorin
