#include "desktop/TrackNotification.h"

#include <fmt/format.h>

#include <utility>

#include "foundation/Preferences.h"

namespace velorin {
namespace {

constexpr const char* kNextTrack = "NEXT_TRACK";
constexpr const char* kPause = "PAUSE";

std::string rateText(int rate) {
  return rate < 1000 ? fmt::format("{} Hz", rate) : fmt::format("{:.1f} kHz", rate / 1000.0);
}

}  // namespace

TrackNotificationText trackNotificationText(const TrackInfo& info) {
  const Track& track = info.track;
  std::vector<std::string> known;
  if (track.format && !track.format->empty()) known.push_back(*track.format);
  if (track.sampleRate.value_or(0) > 0) known.push_back(rateText(*track.sampleRate));
  if (track.bitDepth.value_or(0) > 0) known.push_back(fmt::format("{}-bit", *track.bitDepth));
  return {.title = track.title,
          .subtitle = fmt::format("{} — {}", info.artist.name, info.album.title),
          .body = fmt::format("{}", fmt::join(known, " · "))};
}

TrackNotification::TrackNotification(SessionBus& bus, const Preferences& preferences,
                                     CoverPath coverPath, Actions actions)
    : _preferences(preferences),
      _coverPath(std::move(coverPath)),
      _notifier(bus, [actions = std::move(actions)](const std::string& key) {
        if (key == kNextTrack && actions.next) actions.next();
        if (key == kPause && actions.togglePlayPause) actions.togglePlayPause();
      }) {}

void TrackNotification::show(const TrackInfo& info) {
  if (!_preferences.getBool("trackChangeNotification").value_or(true)) return;
  const TrackNotificationText text = trackNotificationText(info);
  DesktopNotification notification;
  notification.summary = text.title;
  notification.body = text.subtitle;
  if (!text.body.empty()) notification.body += fmt::format("\n{}", text.body);
  if (!info.isExternal && info.album.id && _coverPath) {
    notification.imagePath = _coverPath(*info.album.id);
  }
  notification.actions = {{.key = kNextTrack, .label = "Next"}, {.key = kPause, .label = "Pause"}};
  notification.category = "x-velorin.track.change";
  _notifier.show(std::move(notification));
}

}  // namespace velorin
