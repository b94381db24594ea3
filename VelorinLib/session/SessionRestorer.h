// Brings the saved session back: from ids and paths to tracks.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "foundation/SerialQueue.h"
#include "session/PlayerTypes.h"
#include "session/SavedSession.h"

namespace velorin {

class DatabaseManager;
class Preferences;

/// What the player takes over, with indexes that fit. The engine is not started: the first play
/// begins at `restoredPosition`.
struct RestoredSession {
  TrackInfo currentTrack;
  std::vector<TrackInfo> timeline;  ///< at least one
  int timelineIndex = 0;
  double duration = 0;         ///< seconds
  double currentPosition = 0;  ///< seconds
  /// Empty when the saved track is gone and another one of the timeline stands in for it.
  std::optional<double> restoredPosition;
  bool isPlayingAutoplay = false;
  std::vector<TrackInfo> autoplayQueue;
  std::vector<HistoryEntry> history;  ///< oldest first
  bool historyFullyLoaded = false;
  std::optional<std::size_t> historyNavigationIndex;
};

struct RestoreOutcome {
  std::optional<RestoredSession> session;  ///< empty: there is none, or nothing is left of it
  /// The library could not be read: what is stored may still be whole, and must not be written over
  /// by a player that knows nothing of it (SessionSaver::start).
  bool failed = false;
};

/// Blocks for the database and for the files from outside the library. Ids without a track drop
/// out, and the index moves with what is left of the timeline where the current track shows how
/// far. Without a database only files from outside are found.
RestoreOutcome restoreSession(const SavedSession& saved, DatabaseManager* database);

/// Does the same on a thread of its own. Main thread.
class SessionRestorer {
 public:
  /// The preferences outlive it. The database may be absent.
  SessionRestorer(Preferences& preferences, std::shared_ptr<DatabaseManager> database);
  /// Waits for the read that is on its way; its result is dropped.
  ~SessionRestorer();

  /// Calls back once on the main thread, never from inside this call.
  void restore(std::function<void(RestoreOutcome)> done);

 private:
  Preferences& _preferences;
  std::shared_ptr<DatabaseManager> _database;
  std::shared_ptr<bool> _alive = std::make_shared<bool>(true);
  SerialQueue _queue{"com.velorin.restore"};
};

}  // namespace velorin
