// Brings the saved session back: from ids and paths to tracks.
#pragma once

#include <atomic>
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
///
/// Asks now and then whether it is still wanted, and fails when it is not.
RestoreOutcome restoreSession(const SavedSession& saved, DatabaseManager* database,
                              const std::function<bool()>& isCancelled);

/// Does the same on a thread of its own. Main thread.
class SessionRestorer {
 public:
  /// The preferences outlive it. The database may be absent.
  SessionRestorer(Preferences& preferences, std::shared_ptr<DatabaseManager> database);
  /// What is on its way ends soon, and its result is dropped: waits for the file or the thousand
  /// tracks that are being read.
  ~SessionRestorer();

  /// Calls back once on the main thread, never from inside this call.
  void restore(std::function<void(RestoreOutcome)> done);

 private:
  Preferences& _preferences;
  std::shared_ptr<DatabaseManager> _database;
  std::shared_ptr<std::atomic<bool>> _cancelled = std::make_shared<std::atomic<bool>>(false);
  SerialQueue _queue{"com.velorin.restore"};  // last: it joins before what its task uses goes
};

}  // namespace velorin
