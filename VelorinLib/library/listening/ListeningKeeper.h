// What the listener did outlives the row of the track it was done to.
//
// A file that was edited, moved or renamed leaves the library and comes back as a new row. Its
// plays, skips, rating, bookmarks, history, places in playlists, pins and the mark of a favourite
// are kept when the row goes, in the same transaction (DepartedTracks.h), and given to the row that
// stands for the same file (path and CUE start) as soon as that row is made. What is left then
// finds its track by its sound: duration and a hash of the first decoded seconds (SoundSearch.h).
#pragma once

#include <functional>

#include "foundation/Preferences.h"
#include "foundation/SerialQueue.h"
#include "library/DatabaseHandle.h"
#include "library/listening/TrackSounds.h"

namespace velorin {

/// While it lives the library knows which tracks are favourites, which only the preferences tell:
/// whoever removes tracks should have one. It notes them when it is made, which blocks for the
/// database, and then in the background whenever the preference changes.
///
/// Any thread but the render thread, one at a time. Both outlive it. A failure of the database is
/// logged, and what it kept from happening is tried again after the next scan.
class ListeningKeeper {
 public:
  /// With the hash of platform/media/SoundHash.h.
  ListeningKeeper(const DatabaseHandle& database, Preferences& preferences);
  ListeningKeeper(const DatabaseHandle& database, Preferences& preferences,
                  TrackSounds::HashSound hashSound);

  /// The step after each scan: finds by their sound the tracks that moved, gives the preference
  /// "favoriteTrackIds" the ids of rows that came back, and hashes the sound of tracks that the
  /// listener did something to, so that they can be found when they move.
  ///
  /// Decodes a few seconds of each file concerned, of kDecodedPerScan files at most, and goes on
  /// after the next scan; stops early, without loss, when isCancelled says so.
  void afterScan(const std::function<bool()>& isCancelled) const;

  /// Drops the marks of favourites of a library that was cleared (TrackRemoval::clearLibrary),
  /// whose ids its next tracks get. Before any of these is made; a keeper that is made later does
  /// the same.
  void afterClear() const;

  static constexpr std::size_t kDecodedPerScan = 1000;  ///< to find tracks
  static constexpr std::size_t kLearntPerScan = 250;    ///< to be able to find them later

 private:
  void follow() const;
  void note() const;
  void find(TrackSounds& sounds, const std::function<bool()>& isCancelled) const;
  void learn(TrackSounds& sounds, const std::function<bool()>& isCancelled) const;

  const DatabaseHandle& _database;
  Preferences& _preferences;
  TrackSounds::HashSound _hashSound;
  SerialQueue _notes{"com.velorin.listening"};
  Preferences::Observation _favoritesChanged;
};

}  // namespace velorin
