// The small closed sets of playback that many parts share, with the raw values in which they are
// stored and the names by which they are written in JSON, on the command line and in the log.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace velorin {

/// What the engine does. The engine's own state is the one source of truth.
enum class PlaybackState : std::uint8_t { stopped = 0, playing = 1, paused = 2 };

/// Where the volume is applied.
enum class VolumeMode : std::uint8_t {
  software = 0,  ///< scaled in the render path
  hardware = 1,  ///< by the device's own control; samples stay as they are
  fixed = 2,     ///< nowhere: full scale
};

/// How the output rate follows from the rate of the file.
enum class SampleRateStrategy : std::uint8_t {
  native = 0,    ///< the rate of the file
  powerOf2 = 1,  ///< a power-of-two multiple of it
  max = 2,       ///< the device's highest
  fixed = 3,     ///< one chosen rate
};

std::string_view nameOf(PlaybackState state) noexcept;
std::string_view nameOf(VolumeMode mode) noexcept;
std::string_view nameOf(SampleRateStrategy strategy) noexcept;

/// From a name, exact spelling. Defined for the three enumerations above.
template <class E>
std::optional<E> fromName(std::string_view name) noexcept;
template <>
std::optional<PlaybackState> fromName(std::string_view name) noexcept;
template <>
std::optional<VolumeMode> fromName(std::string_view name) noexcept;
template <>
std::optional<SampleRateStrategy> fromName(std::string_view name) noexcept;

/// From a stored raw value; empty for one that no version has written.
template <class E>
std::optional<E> fromRaw(std::int64_t raw) noexcept {
  if (raw < 0 || raw > 255 || nameOf(static_cast<E>(raw)).empty()) return std::nullopt;
  return static_cast<E>(raw);
}

}  // namespace velorin
