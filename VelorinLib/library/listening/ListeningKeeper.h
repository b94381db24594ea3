// What the listener did outlives the row of the track it was done to.
//
// A file that was edited, moved or renamed leaves the library and comes back as a new row. Its
// plays, skips, rating, bookmarks, history, places in playlists, pins and the mark of a favourite
// are kept when the row goes, in the same transaction, and given to the row that stands for the
// same file (path and CUE start) as soon as that row is made. What is left then finds its track by
// its sound: duration and a hash of the first decoded seconds.
#pragma once

#include <functional>

#include "library/DatabaseHandle.h"

namespace velorin {

class Preferences;

/// Any thread but the render thread, one at a time. Both outlive it.
class ListeningKeeper {
 public:
  ListeningKeeper(const DatabaseHandle& database, Preferences& preferences)
      : _database(database), _preferences(preferences) {}

  /// The step after each scan: finds by their sound the tracks that moved, gives the preference
  /// "favoriteTrackIds" the ids of rows that came back, and hashes the sound of tracks that the
  /// listener did something to, so that they can be found when they move. Decodes a few seconds
  /// of each file concerned; stops early, without loss, when isCancelled says so. A failure is
  /// logged and tried again after the next scan.
  void afterScan(const std::function<bool()>& isCancelled) const;

 private:
  const DatabaseHandle& _database;
  Preferences& _preferences;
};

}  // namespace velorin
