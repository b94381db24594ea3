// What the system chose to play when the timeline is over.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "session/PlayerTypes.h"

namespace velorin {

/// Pure; one thread. Autoplay goes on from what was played lately; radio, which goes first, from
/// one track.
class AutoplayQueue {
 public:
  const std::vector<TrackInfo>& tracks() const noexcept { return _tracks; }
  bool isEnabled() const noexcept { return _isEnabled; }
  void setEnabled(bool on) { _isEnabled = on; }
  std::optional<std::int64_t> radioSeed() const noexcept { return _radioSeed; }
  void setRadioSeed(std::optional<std::int64_t> trackId) { _radioSeed = trackId; }
  /// True when what is here follows the timeline.
  bool goesOn() const noexcept { return _isEnabled || _radioSeed.has_value(); }

  /// True while the current track came from here.
  bool isPlaying() const noexcept { return _isPlaying; }
  void setPlaying(bool playing) { _isPlaying = playing; }

  void set(std::vector<TrackInfo> tracks) { _tracks = std::move(tracks); }
  void append(std::vector<TrackInfo> tracks) {
    std::move(tracks.begin(), tracks.end(), std::back_inserter(_tracks));
  }
  /// Takes the item out, which then plays.
  TrackInfo take(std::size_t index) {
    TrackInfo taken = std::move(_tracks[index]);
    _tracks.erase(_tracks.begin() + static_cast<std::ptrdiff_t>(index));
    return taken;
  }
  std::optional<std::size_t> find(const Track& track) const {
    const auto found = std::find_if(_tracks.begin(), _tracks.end(), [&](const TrackInfo& each) {
      return isSameItem(each.track, track);
    });
    if (found == _tracks.end()) return std::nullopt;
    return static_cast<std::size_t>(found - _tracks.begin());
  }
  /// Another basis: nothing here follows from it.
  void reset() {
    _tracks.clear();
    _radioSeed.reset();
    _isPlaying = false;
  }

 private:
  std::vector<TrackInfo> _tracks;
  std::optional<std::int64_t> _radioSeed;
  bool _isEnabled = true;
  bool _isPlaying = false;
};

}  // namespace velorin
