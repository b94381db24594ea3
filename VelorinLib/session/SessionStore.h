// The saved session among the preferences.
//
//   "lastTrackId"             integer  of the current track, 0 when it has none
//   "lastTrackPosition"       double   seconds
//   "lastTrackDuration"       double   seconds
//   "lastQueueIds"            list     the id of each item of the timeline, 0 for none
//   "lastQueueIndex"          integer  where the timeline stands; never below 0
//   "lastAutoplayIds"         list     the ids of the autoplay queue
//   "lastIsAutoplay"          bool     the current track came from there
//   "lastHistoryNavOffset"    integer  how far from the end of the history; absent if nowhere in it
//   "lastExternalPaths"       map      index in the timeline, as decimal text -> path of the file;
//                                      absent if none is external
//   "lastExternalTrackPath"   text     path of the current track; absent if it is of the library
//   "lastExternalCueParts"    map      index as above -> the part of the file that a CUE sheet cut
//                                      out: "start" and "end" (seconds; no end: that of the file),
//                                      "title", "artist", "album", "number"; absent if none is one
//   "lastExternalTrackCuePart" map     the same of the current track
//
// "lastPlaylistIds" and "lastPlaylistIndex", the older names of the queue and its index, are read
// where these are absent, and never written.
#pragma once

#include <optional>

#include "session/SavedSession.h"

namespace velorin {

class Preferences;

/// Any thread but the render thread, one at a time.
class SessionStore {
 public:
  /// The preferences outlive it.
  explicit SessionStore(Preferences& preferences) : _preferences(preferences) {}

  /// Sets these parts of the session, from memory to memory: they are on disk a moment later. Keys
  /// whose values stay the same cost a comparison.
  void put(const SavedSession& session, SessionParts parts);

  /// Writes the whole session, or its absence, with a line in the log. On disk when it returns
  /// true; false when that was not possible (the preferences have said why).
  bool save(const std::optional<SavedSession>& session);

  /// Removes all keys but those of the older names.
  void clear();

  /// What was saved; empty when nothing was, and either is told in the log. Keys that are missing
  /// or of another kind read as nothing. May read a file: the list of a long queue.
  std::optional<SavedSession> load() const;

 private:
  void putPlace(const SavedSession& session);
  void putQueue(const SavedSession& session);

  Preferences& _preferences;
  std::optional<std::vector<std::int64_t>> _queueIds;  ///< those that were put last
};

}  // namespace velorin
