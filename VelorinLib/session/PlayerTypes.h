// The small types of the player: what PlayerState and those who show it speak in.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "records/TrackInfo.h"

namespace velorin {

/// What follows the last track. The values are stored under the preference "repeatMode".
enum class RepeatMode : std::uint8_t { off = 0, all = 1, one = 2 };

/// "off", "all", "one".
std::string_view nameOf(RepeatMode mode) noexcept;
/// Any value that was never written reads as off.
RepeatMode repeatModeFromRaw(std::int64_t raw) noexcept;

/// What the sleep timer does at its end. Stored in "sleepTimerAction" by these names.
enum class SleepTimerAction : std::uint8_t { pause, sleepMac, shutdownMac };

/// "pause", "sleepMac", "shutdown".
std::string_view nameOf(SleepTimerAction action) noexcept;
std::optional<SleepTimerAction> sleepTimerActionFromName(std::string_view name) noexcept;

/// One step of what was played. The id is made with the entry, so that a track can stand twice in
/// a list.
struct HistoryEntry {
  std::string id;  ///< UUID
  TrackInfo track;
};

/// Two of these denote the same item of a timeline: an item of a CUE sheet shares its path, an
/// external one its lack of an id.
inline bool isSameItem(const Track& a, const Track& b) {
  return a.filePath == b.filePath && a.cueStartTime == b.cueStartTime;
}
inline bool isSameItem(const TrackInfo& a, const TrackInfo& b) {
  return isSameItem(a.track, b.track);
}

/// What changed in the player, as a set: for those who show it.
enum class PlayerChange : std::uint32_t {
  track = 1 << 0,     ///< currentTrack, its duration, bit depth, rates
  state = 1 << 1,     ///< state, isLoading
  position = 1 << 2,  ///< a jump: a seek or another start; not the time that passes
  tick = 1 << 3,      ///< currentPosition went on with the time
  timeline = 1 << 4,  ///< timeline, timelineIndex
  modes = 1 << 5,     ///< shuffle, repeat, stopAfterCurrent, autoplayEnabled, radio
  autoplay = 1 << 6,  ///< autoplayQueue
  history = 1 << 7,   ///< history and the navigation in it
  bookmarks = 1 << 8,
  sleepTimer = 1 << 9,
  volume = 1 << 10,
  settings = 1 << 11,  ///< gapless, crossfade, exclusive, integer, memory, rates, volume mode
  effects = 1 << 12,   ///< switches, parameters, equalizer, chain, headroom, comparison
};

class PlayerChanges {
 public:
  constexpr PlayerChanges() = default;
  constexpr PlayerChanges(PlayerChange change)  // NOLINT: a change is a set of one
      : _bits(static_cast<std::uint32_t>(change)) {}

  constexpr bool has(PlayerChange change) const noexcept {
    return (_bits & static_cast<std::uint32_t>(change)) != 0;
  }
  constexpr bool empty() const noexcept { return _bits == 0; }
  constexpr PlayerChanges operator|(PlayerChanges other) const noexcept {
    PlayerChanges both;
    both._bits = _bits | other._bits;
    return both;
  }
  constexpr PlayerChanges& operator|=(PlayerChanges other) noexcept {
    _bits |= other._bits;
    return *this;
  }

 private:
  std::uint32_t _bits = 0;
};
constexpr PlayerChanges operator|(PlayerChange a, PlayerChange b) noexcept {
  return PlayerChanges(a) | PlayerChanges(b);
}

}  // namespace velorin
