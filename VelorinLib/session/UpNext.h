// What the engine was told to play next.
#pragma once

#include <deque>
#include <optional>

#include "records/TrackInfo.h"
#include "session/PlayerTypes.h"
#include "session/QueueSteps.h"

namespace velorin {

/// Pure; one thread. A wish may be too late to be revoked when another one follows it, so the last
/// few are kept: what takes over is found again with its album and its artist.
class UpNext {
 public:
  void set(QueuePlace place, const TrackInfo& track) {
    _place = place;
    if (!_wishes.empty() && isSameItem(_wishes.back(), track)) return;
    _wishes.push_back(track);
    if (_wishes.size() > kKept) _wishes.pop_front();
  }
  void clear() { _place.reset(); }

  /// The place of the present wish, if that is the track.
  std::optional<QueuePlace> placeOf(const Track& track) const {
    if (!_place || !isSameItem(_wishes.back().track, track)) return std::nullopt;
    return _place;
  }
  /// The track as it was wished, or with nothing but itself.
  TrackInfo infoOf(const Track& track) const {
    for (const TrackInfo& wish : _wishes) {
      if (isSameItem(wish.track, track)) return wish;
    }
    TrackInfo info;
    info.track = track;
    info.isExternal = !track.id.has_value();
    return info;
  }

 private:
  static constexpr std::size_t kKept = 4;

  std::optional<QueuePlace> _place;
  std::deque<TrackInfo> _wishes;  // the newest last
};

}  // namespace velorin
