// What is particular to a decoder of one-bit audio.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace velorin {

/// The rates of one-bit audio in Hz; a file of any other cannot be read.
enum class DSDRate : std::uint32_t {
  dsd64 = 2822400,
  dsd128 = 5644800,
  dsd256 = 11289600,
  dsd512 = 22579200,
};

constexpr double hertz(DSDRate rate) noexcept {
  return static_cast<double>(rate);
}
/// Hz of the PCM that the 8:1 filter gives, before any further decimation.
constexpr double rateAfter8To1(DSDRate rate) noexcept {
  return hertz(rate) / 8;
}
std::optional<DSDRate> dsdRateOf(std::uint64_t hertz) noexcept;
/// "DSD64" … "DSD512".
std::string_view nameOf(DSDRate rate) noexcept;

/// A decoder that makes PCM of one-bit audio. Until prepareDSDtoPCM() was called the decoder
/// reports the rate after the 8:1 filter.
class DSDSource {
 public:
  virtual ~DSDSource() = default;
  virtual DSDRate dsdRate() const noexcept = 0;
  /// What follows the 8:1 filter: 1, or a power of two up to 256. From now on the decoder's rate,
  /// length and positions are those of the PCM after it, and it stands at the first frame. Engine
  /// queue or fill thread, before the first read. Throws std::bad_alloc.
  virtual void prepareDSDtoPCM(int decimation) = 0;
  /// Joins this file to the one before, which has been read to its end: what the filters of that
  /// one hold is heard first, so that a recording that was cut into files plays on without a seam.
  /// To be called once prepared and before the first read. Does nothing where the PCM rates differ.
  /// Fill thread.
  virtual void continueFrom(const DSDSource& before) noexcept = 0;
};

}  // namespace velorin
