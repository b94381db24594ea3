#include "engine/joins/Prefetch.h"

#include "engine/files/FormatNames.h"
#include "foundation/Log.h"
#include "foundation/SerialQueue.h"

namespace velorin {
namespace {

/// Never destroyed: it may hang in a file for as long as the process lives.
SerialQueue& utilityQueue() {
  static auto* const queue = new SerialQueue("com.velorin.engine.prefetch");
  return *queue;
}

bool canBePreOpened(const JoinDesk& desk, const Track& next, const std::string& playingPath) {
  if (!desk.settings.gaplessEnabled()) return false;
  return !(next.cueStartTime && next.filePath == playingPath);
}

void preOpen(JoinDesk& desk, const std::string& playingPath) {
  const auto wish = desk.nextTrack.get();
  if (!wish || !canBePreOpened(desk, wish->track, playingPath)) {
    desk.preOpened.put({}, {});
    return;
  }
  const std::string& path = wish->track.filePath;
  if (desk.preOpened.holds(path)) return;
  const std::uint64_t version = desk.nextTrack.version();
  auto opened = desk.files.open(path, [&] { return desk.nextTrack.version() == version; });
  if (!opened) {
    desk.preOpened.put({}, {});
    return;
  }
  const auto now = desk.nextTrack.get();
  if (!now || now->track.filePath != path) return;
  OpenedTrack track = std::move(opened).value();
  desk.preOpened.put(path, std::move(track));
  log::line("📦 Pre-opened next {} for gapless: {}", formatNamesOf(path).preOpened,
            titleOf(wish->track));
}

}  // namespace

void prefetchNextTrack(const std::shared_ptr<JoinDesk>& desk, const std::optional<Track>& playing) {
  utilityQueue().async(
      [weak = std::weak_ptr(desk), playingPath = playing ? playing->filePath : std::string()] {
        if (const auto alive = weak.lock()) preOpen(*alive, playingPath);
      });
}

void dropPrefetched(const std::shared_ptr<JoinDesk>& desk) {
  utilityQueue().async([weak = std::weak_ptr(desk)] {
    if (const auto alive = weak.lock()) alive->preOpened.put({}, {});
  });
}

}  // namespace velorin
