#include "session/QueueSteps.h"

namespace velorin {
namespace {

using Region = QueuePlace::Region;

}  // namespace

std::optional<QueuePlace> placeAfter(const QueueView& view) {
  if (view.navigation) {
    if (*view.navigation + 1 < view.historyCount) {
      return QueuePlace{Region::history, *view.navigation + 1};
    }
    if (view.isSelected()) {
      return QueuePlace{Region::timeline, static_cast<std::size_t>(view.timelineIndex)};
    }
  }
  const auto following = static_cast<std::size_t>(view.timelineIndex + 1);
  if (following < view.timelineCount) return QueuePlace{Region::timeline, following};

  const bool repeats = view.repeatMode == RepeatMode::all && view.timelineCount > 0;
  const bool mayTake = view.autoplayCount > 0 && (view.autoplayGoesOn || view.isPlayingAutoplay);
  if (mayTake && (view.isPlayingAutoplay || !repeats)) return QueuePlace{Region::autoplay, 0};
  if (repeats) return QueuePlace{Region::timeline, 0};
  return std::nullopt;
}

std::optional<QueuePlace> placeAfterEnd(const QueueView& view) {
  if (view.repeatMode == RepeatMode::one && view.hasCurrent) return QueuePlace{Region::current, 0};
  return placeAfter(view);
}

std::optional<QueuePlace> placeBefore(const QueueView& view) {
  const auto newest = [&]() -> std::optional<QueuePlace> {
    if (view.historyCount == 0) return std::nullopt;
    return QueuePlace{Region::history, view.historyCount - 1};
  };
  if (view.isPlayingAutoplay) {
    if (const auto place = newest()) return place;
    if (!view.isSelected()) return std::nullopt;
    return QueuePlace{Region::timeline, static_cast<std::size_t>(view.timelineIndex)};
  }
  if (view.navigation) {
    if (*view.navigation == 0) return std::nullopt;
    return QueuePlace{Region::history, *view.navigation - 1};
  }
  if (view.timelineIndex >= 1) {
    return QueuePlace{Region::timeline, static_cast<std::size_t>(view.timelineIndex - 1)};
  }
  return newest();
}

}  // namespace velorin
