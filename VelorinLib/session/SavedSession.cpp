#include "session/SavedSession.h"

namespace velorin {

SavedExternal savedExternalOf(const TrackInfo& info) {
  SavedExternal saved{info.track.filePath, std::nullopt};
  if (info.track.cueStartTime) {
    saved.cue = {.start = *info.track.cueStartTime,
                 .end = info.track.cueEndTime,
                 .title = info.track.title,
                 .artist = info.artist.name,
                 .album = info.album.title,
                 .trackNumber = info.track.trackNumber};
  }
  return saved;
}

void setQueue(SavedSession& session, const TrackList& timeline) {
  session.queueIds.clear();
  session.externals.clear();
  session.queueIds.reserve(timeline.size());
  for (const TrackInfo& info : timeline) {
    if (info.isExternal) {
      session.externals.emplace_hint(session.externals.end(), session.queueIds.size(),
                                     savedExternalOf(info));
    }
    session.queueIds.push_back(info.track.id.value_or(0));
  }
}

}  // namespace velorin
