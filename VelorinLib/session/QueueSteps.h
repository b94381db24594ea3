// Which track comes after this one, and which before it: the rules, without the tracks.
//
// What plays is in one of three regions. In the history, which the listener walks through, the
// following entry is next, and after the last one the timeline's selected item. In the timeline its
// following item is next, then, with repeat all, its first one, else what autoplay chose. In
// autoplay an item that was added to the timeline meanwhile goes before the queue.
#pragma once

#include <cstddef>
#include <optional>

#include "session/PlayerTypes.h"

namespace velorin {

/// The lists as far as the rules look at them.
struct QueueView {
  std::size_t timelineCount = 0;
  int timelineIndex = -1;
  std::size_t autoplayCount = 0;
  bool isPlayingAutoplay = false;
  bool autoplayGoesOn = false;  ///< autoplay is on, or radio
  std::size_t historyCount = 0;
  std::optional<std::size_t> navigation = {};  ///< in the history
  RepeatMode repeatMode = RepeatMode::off;
  bool hasCurrent = false;

  bool isSelected() const noexcept {
    return timelineIndex >= 0 && static_cast<std::size_t>(timelineIndex) < timelineCount;
  }
};

/// A place in one of the lists; `current` is where the player is.
struct QueuePlace {
  enum class Region { current, timeline, autoplay, history };

  Region region = Region::current;
  std::size_t index = 0;

  bool operator==(const QueuePlace&) const = default;
};

/// Where the listener's "next" leads; nothing at the end of everything. Pure.
std::optional<QueuePlace> placeAfter(const QueueView& view);

/// Where the end of the current track leads by itself: the same, but the current track anew with
/// repeat one. Pure.
std::optional<QueuePlace> placeAfterEnd(const QueueView& view);

/// Where "previous" leads; nothing when it only goes to the start of the track. Pure.
std::optional<QueuePlace> placeBefore(const QueueView& view);

}  // namespace velorin
