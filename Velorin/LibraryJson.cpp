#include "LibraryJson.h"

#include "foundation/Dates.h"

namespace velorin {
namespace {

using TimePoint = std::chrono::system_clock::time_point;

/// Adds members, those without a value as null.
class Members {
 public:
  template <class T>
  Members& add(const char* key, const T& value) {
    _object.add(key, value);
    return *this;
  }
  Members& add(const char* key, TimePoint moment) { return add(key, jsonMoment(moment)); }
  template <class T>
  Members& add(const char* key, const std::optional<T>& value) {
    if (value) return add(key, *value);
    _object.addNull(key);
    return *this;
  }

  JsonObject take() { return std::move(_object); }

 private:
  JsonObject _object;
};

std::optional<std::vector<JsonObject>> json(
    const std::optional<std::vector<TrackBookmark>>& bookmarks) {
  if (!bookmarks) return std::nullopt;
  std::vector<JsonObject> list;
  for (const TrackBookmark& each : *bookmarks) {
    list.push_back(Members()
                       .add("id", each.id)
                       .add("position", each.position)
                       .add("label", each.label)
                       .add("color", each.color)
                       .take());
  }
  return list;
}

JsonObject json(const Track& track) {
  return Members()
      .add("id", track.id)
      .add("title", track.title)
      .add("trackNumber", track.trackNumber)
      .add("discNumber", track.discNumber)
      .add("duration", track.duration)
      .add("filePath", track.filePath)
      .add("albumId", track.albumId)
      .add("artistId", track.artistId)
      .add("sampleRate", track.sampleRate)
      .add("bitDepth", track.bitDepth)
      .add("channels", track.channels)
      .add("format", track.format)
      .add("bitRate", track.bitRate)
      .add("fileSize", track.fileSize)
      .add("lastModified", track.lastModified)
      .add("composer", track.composer)
      .add("conductor", track.conductor)
      .add("comment", track.comment)
      .add("lyrics", track.lyrics)
      .add("genre", track.genre)
      .add("year", track.year)
      .add("cueStartTime", track.cueStartTime)
      .add("cueEndTime", track.cueEndTime)
      .add("replayGainTrackGain", track.replayGainTrackGain)
      .add("replayGainAlbumGain", track.replayGainAlbumGain)
      .add("replayGainTrackPeak", track.replayGainTrackPeak)
      .add("replayGainAlbumPeak", track.replayGainAlbumPeak)
      .add("syncedLyrics", track.syncedLyrics)
      .add("bookmarks", json(track.bookmarks))
      .add("rating", track.rating)
      .add("totalPlays", track.totalPlays)
      .add("totalSkips", track.totalSkips)
      .add("scannedLoudness", track.scannedLoudness)
      .add("scannedTruePeak", track.scannedTruePeak)
      .add("loudnessScanVersion", track.loudnessScanVersion)
      .add("dynamicRange", track.dynamicRange)
      .take();
}

JsonObject json(const Album& album) {
  return Members()
      .add("id", album.id)
      .add("title", album.title)
      .add("artistId", album.artistId)
      .add("year", album.year)
      .add("artworkPath", album.artworkPath)
      .add("genre", album.genre)
      .add("worstFormat", album.worstFormat)
      .add("accentColorHex", album.accentColorHex)
      .take();
}

}  // namespace

std::string jsonMoment(TimePoint moment) {
  std::string text = dates::toText(moment);
  text[text.find(' ')] = 'T';
  return text + 'Z';
}

JsonObject json(const Artist& artist) {
  return Members().add("id", artist.id).add("name", artist.name).take();
}

JsonObject json(const Playlist& playlist) {
  return Members()
      .add("id", playlist.id)
      .add("name", playlist.name)
      .add("isSmartPlaylist", playlist.isSmartPlaylist)
      .add("rulesJSON", playlist.rulesJSON)
      .add("createdAt", playlist.createdAt)
      .add("updatedAt", playlist.updatedAt)
      .take();
}

JsonObject json(const TrackInfo& info) {
  return Members()
      .add("track", json(info.track))
      .add("album", json(info.album))
      .add("artist", json(info.artist))
      .take();
}

JsonObject json(const AlbumInfo& info) {
  return Members()
      .add("album", json(info.album))
      .add("artist", json(info.artist))
      .add("trackCount", info.trackCount)
      .add("totalDuration", info.totalDuration)
      .add("format", info.format)
      .add("maxSampleRate", info.maxSampleRate)
      .add("maxBitDepth", info.maxBitDepth)
      .take();
}

}  // namespace velorin
