#include "library/queries/TrackEdits.h"

namespace velorin {

using sqlite::Writer;

void TrackEdits::updateBookmarks(std::int64_t trackId,
                                 const std::vector<TrackBookmark>& bookmarks) const {
  std::optional<std::string> json;
  if (!bookmarks.empty()) json = toJSON(bookmarks);
  _database.write([&](Writer& writer) {
    writer.run("UPDATE tracks SET bookmarks = ? WHERE id = ?", json, trackId);
  });
}

void TrackEdits::updateLyrics(std::int64_t trackId, const std::optional<std::string>& lyrics,
                              const std::optional<std::string>& syncedLyrics) const {
  _database.write([&](Writer& writer) {
    writer.run("UPDATE tracks SET lyrics = ? WHERE id = ?", lyrics, trackId);
    if (syncedLyrics) {
      writer.run("UPDATE tracks SET syncedLyrics = ? WHERE id = ?", syncedLyrics, trackId);
    }
  });
}

}  // namespace velorin
