#include "records/PlaybackTypes.h"

#include <array>
#include <cstddef>

namespace velorin {

namespace {

// The position in a table is the raw value.
constexpr std::array<std::string_view, 3> kStates{"stopped", "playing", "paused"};
constexpr std::array<std::string_view, 3> kVolumeModes{"software", "hardware", "fixed"};
constexpr std::array<std::string_view, 4> kStrategies{"native", "powerOf2", "max", "fixed"};

template <std::size_t N>
std::string_view at(const std::array<std::string_view, N>& names, std::size_t raw) noexcept {
  return raw < N ? names[raw] : std::string_view{};
}

template <class E, std::size_t N>
std::optional<E> find(const std::array<std::string_view, N>& names,
                      std::string_view name) noexcept {
  for (std::size_t raw = 0; raw < N; ++raw) {
    if (names[raw] == name) return static_cast<E>(raw);
  }
  return std::nullopt;
}

}  // namespace

std::string_view nameOf(PlaybackState state) noexcept {
  return at(kStates, static_cast<std::size_t>(state));
}

std::string_view nameOf(VolumeMode mode) noexcept {
  return at(kVolumeModes, static_cast<std::size_t>(mode));
}

std::string_view nameOf(SampleRateStrategy strategy) noexcept {
  return at(kStrategies, static_cast<std::size_t>(strategy));
}

template <>
std::optional<PlaybackState> fromName(std::string_view name) noexcept {
  return find<PlaybackState>(kStates, name);
}

template <>
std::optional<VolumeMode> fromName(std::string_view name) noexcept {
  return find<VolumeMode>(kVolumeModes, name);
}

template <>
std::optional<SampleRateStrategy> fromName(std::string_view name) noexcept {
  return find<SampleRateStrategy>(kStrategies, name);
}

}  // namespace velorin
