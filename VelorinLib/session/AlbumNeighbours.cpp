#include "session/AlbumNeighbours.h"

namespace velorin {
namespace {

/// External tracks have the titles of their album and its artist alone.
bool areOfOneAlbum(const TrackInfo& a, const TrackInfo& b) {
  if (!a.isExternal && !b.isExternal) {
    return a.track.albumId > 0 && a.track.albumId == b.track.albumId;
  }
  return !a.album.title.empty() && a.album.title == b.album.title && a.artist.name == b.artist.name;
}

}  // namespace

bool areAlbumNeighbours(const TrackInfo& first, const TrackInfo& second, bool areConsecutive) {
  if (!areOfOneAlbum(first, second)) return false;
  const auto& a = first.track;
  const auto& b = second.track;
  if (!a.trackNumber || !b.trackNumber) return areConsecutive;
  const int discOfA = a.discNumber.value_or(1);
  const int discOfB = b.discNumber.value_or(1);
  if (discOfA == discOfB) return *b.trackNumber == *a.trackNumber + 1;
  // How many tracks a disc has nobody tells: where they are played one after the other, the track
  // before the first of the next disc is the last one.
  return areConsecutive && discOfB == discOfA + 1 && *b.trackNumber == 1;
}

}  // namespace velorin
