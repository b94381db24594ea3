#include "desktop/TrackInsertion.h"

#include <algorithm>

#include "desktop/TrackListWindow.h"
#include "session/PlayerState.h"

namespace velorin {
namespace {

using Clock = std::chrono::steady_clock;

/// What has not come by then could not be read.
constexpr auto kPatience = std::chrono::seconds(30);
constexpr std::size_t kMostAwaited = 256;

std::size_t firstAfterCurrent(const PlayerState& player) {
  return static_cast<std::size_t>(player.timelineIndex() + 1);
}

}  // namespace

void TrackInsertion::add(PlayerState& player, const TrackListWindow& window,
                         const std::string& path, std::optional<MprisTrackId> after, bool plays) {
  const auto neighbour = after ? window.indexOf(*after) : std::nullopt;
  const bool isFurther = neighbour && *neighbour >= firstAfterCurrent(player);
  if (isFurther && !plays && *neighbour + 1 == player.timeline().size()) {
    return player.playFiles({path}, ServiceMode::playLater);
  }
  if (isFurther || plays) {
    if (_awaited.size() == kMostAwaited) _awaited.pop_front();
    _awaited.push_back({.path = path,
                        .after = isFurther ? after : std::nullopt,
                        .plays = plays,
                        .since = Clock::now()});
  }
  player.playFiles({path}, ServiceMode::playNext);
}

void TrackInsertion::timelineChanged(PlayerState& player, const TrackListWindow& before) {
  const auto now = Clock::now();
  std::erase_if(_awaited, [&](const Awaited& awaited) {
    return now - awaited.since > kPatience || settle(player, before, awaited);
  });
}

bool TrackInsertion::settle(PlayerState& player, const TrackListWindow& before,
                            const Awaited& awaited) {
  const TrackList& timeline = player.timeline();
  const std::size_t end = std::min(timeline.size(), firstAfterCurrent(player) + kMostAwaited);
  std::optional<std::size_t> place;
  std::optional<std::size_t> neighbour;
  for (std::size_t i = firstAfterCurrent(player); i < end; ++i) {
    const auto id = before.idOf(timeline[i]);
    if (!id && !place && timeline[i].track.filePath == awaited.path) place = i;
    if (id && id == awaited.after) neighbour = i;
  }
  if (!place) return false;
  if (neighbour && *place < *neighbour) {
    player.moveInTimeline(*place, *neighbour + 1);
    place = neighbour;
  }
  if (awaited.plays) player.playFromTimeline(*place);
  return true;
}

}  // namespace velorin
