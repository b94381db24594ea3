// What listings are made of: rows joined with what they belong to.
#pragma once

#include <chrono>
#include <string>

#include "records/Album.h"
#include "records/Artist.h"
#include "records/Track.h"

namespace velorin {

/// A track with its album and its artist: what lists, the queue and the remote carry.
struct TrackInfo {
  Track track;
  Album album;
  Artist artist;
  bool isExternal = false;  ///< opened from outside the library; not stored

  bool operator==(const TrackInfo&) const = default;
};

struct AlbumInfo {
  Album album;
  Artist artist;
  int trackCount = 0;        ///< inside the focus, where there is one; so are the figures below
  double totalDuration = 0;  ///< seconds
  std::optional<std::string> format;  ///< the album's worstFormat
  std::optional<int> maxSampleRate;   ///< Hz
  std::optional<int> maxBitDepth;

  bool operator==(const AlbumInfo&) const = default;
};

struct ArtistInfo {
  Artist artist;
  int albumCount = 0;
  int trackCount = 0;
  double totalDuration = 0;  ///< seconds

  bool operator==(const ArtistInfo&) const = default;
};

/// A genre or a composer. Spellings that differ in case count as one name.
struct CategoryInfo {
  std::string name;
  int trackCount = 0;
  double totalDuration = 0;  ///< seconds

  bool operator==(const CategoryInfo&) const = default;
};
using GenreInfo = CategoryInfo;
using ComposerInfo = CategoryInfo;

/// How often a track was heard.
struct TrackPlayStats {
  int playCount = 0;  ///< rows of the history, skips included
  int skipCount = 0;
  std::optional<std::chrono::system_clock::time_point> lastPlayedAt;

  bool operator==(const TrackPlayStats&) const = default;
};

}  // namespace velorin
