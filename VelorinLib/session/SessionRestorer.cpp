#include "session/SessionRestorer.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Uuid.h"
#include "library/DatabaseManager.h"
#include "library/cue/ExternalTracks.h"
#include "session/SessionStore.h"

namespace velorin {
namespace {

/// So many tracks at a time: others may use the library in between.
constexpr std::size_t kTracksPerRead = 1000;

constexpr std::int64_t kLeastHistory = 50;
/// As many entries as the player holds.
constexpr std::int64_t kMostHistory = 500;

struct Cancelled {};

/// Records by their ids, each as often as it was asked for.
class Records {
 public:
  void want(std::int64_t id) {
    if (id > 0) ++_wanted[id].times;
  }

  void read(DatabaseManager& database, const std::function<bool()>& isCancelled) {
    std::vector<std::int64_t> ids;
    ids.reserve(_wanted.size());
    for (const auto& [id, wanted] : _wanted) ids.push_back(id);
    std::ranges::sort(ids);  // rows that lie together are read together
    for (std::size_t from = 0; from < ids.size(); from += kTracksPerRead) {
      if (isCancelled()) throw Cancelled();
      const std::size_t to = std::min(from + kTracksPerRead, ids.size());
      for (TrackInfo& info : database.tracks().fetchTracks({&ids[from], &ids[to - 1] + 1})) {
        const std::int64_t id = *info.track.id;
        _wanted[id].info = std::move(info);
      }
    }
  }

  std::optional<TrackInfo> take(std::int64_t id) {
    const auto found = _wanted.find(id);
    if (found == _wanted.end()) return std::nullopt;
    if (--found->second.times == 0) return std::move(found->second.info);
    return found->second.info;
  }

 private:
  struct Wanted {
    int times = 0;
    std::optional<TrackInfo> info;
  };
  std::unordered_map<std::int64_t, Wanted> _wanted;
};

/// Files from outside; the parts of one file come from one reading.
class Externals {
 public:
  explicit Externals(const std::function<bool()>& isCancelled) : _isCancelled(isCancelled) {}

  TrackInfo take(const SavedExternal& saved) {
    if (_isCancelled()) throw Cancelled();
    if (!_last || _last->track.filePath != saved.path) _last = trackInfoFromFile(saved.path);
    TrackInfo info = *_last;
    if (saved.cue) cutOut(info, *saved.cue);
    return info;
  }

 private:
  static void cutOut(TrackInfo& info, const SavedExternal::CuePart& cue) {
    const double fileEnd = info.track.duration;
    info.track.cueStartTime = cue.start;
    info.track.cueEndTime = cue.end;
    info.track.duration = std::max(cue.end.value_or(fileEnd) - cue.start, 0.0);
    info.track.title = cue.title;
    info.track.trackNumber = cue.trackNumber;
    info.artist.name = cue.artist;
    info.album.title = cue.album;
  }

  const std::function<bool()>& _isCancelled;
  std::optional<TrackInfo> _last;
};

/// Where the timeline that is left stands.
struct Place {
  std::int64_t saved = 0;        ///< the index of what was saved
  std::size_t leftBefore = 0;    ///< how many items before that are left
  std::size_t size = 0;          ///< how many are left in all
  std::size_t literal() const {  ///< the saved index as far as it goes
    return static_cast<std::size_t>(std::min<std::int64_t>(saved, static_cast<int>(size) - 1));
  }
};

/// Items that dropped out before it have moved the place of the current track. Only the track
/// itself can tell: during autoplay or a walk through the history it stands elsewhere.
std::size_t indexOf(const TrackInfo* current, const std::vector<TrackInfo>& timeline,
                    const Place& place) {
  if (current == nullptr || isSameItem(timeline[place.literal()], *current)) return place.literal();
  const bool hasMoved =
      place.leftBefore < timeline.size() && isSameItem(timeline[place.leftBefore], *current);
  return hasMoved ? place.leftBefore : place.literal();
}

bool isAbove0(double seconds) {
  return std::isfinite(seconds) && seconds > 0;
}

void setTimes(RestoredSession& session, const SavedSession& saved, bool foundTrack) {
  const double ofTrack = session.currentTrack.track.duration;
  session.duration = isAbove0(saved.duration) ? saved.duration : ofTrack;
  if (!foundTrack) return;
  double position = isAbove0(saved.position) ? saved.position : 0;
  if (session.duration > 0) position = std::min(position, session.duration);
  session.currentPosition = position;
  session.restoredPosition = position;
}

void setHistory(RestoredSession& session, std::vector<TrackInfo> rows,
                std::optional<std::int64_t> offset) {
  session.historyFullyLoaded = rows.size() < static_cast<std::size_t>(kLeastHistory);
  for (TrackInfo& row : rows) session.history.push_back({makeUuid(), std::move(row)});
  if (!offset || *offset < 0 || *offset >= static_cast<std::int64_t>(session.history.size())) {
    return;
  }
  session.historyNavigationIndex = session.history.size() - 1 - static_cast<std::size_t>(*offset);
}

RestoreOutcome restore(const SavedSession& saved, DatabaseManager* database,
                       const std::function<bool()>& isCancelled) {
  const auto isExternal = [&](std::size_t i) { return saved.externals.contains(i); };
  Records records;
  for (std::size_t i = 0; i < saved.queueIds.size(); ++i) {
    if (!isExternal(i)) records.want(saved.queueIds[i]);
  }
  for (const std::int64_t id : saved.autoplayIds) records.want(id);
  if (!saved.externalTrack) records.want(saved.trackId);

  std::vector<TrackInfo> rows;
  const std::int64_t offset = saved.historyNavOffset.value_or(0);
  const std::int64_t limit =
      std::max(kLeastHistory, std::clamp<std::int64_t>(offset, 0, kMostHistory - 5) + 5);
  if (database != nullptr) {
    records.read(*database, isCancelled);
    rows = database->history().fetchHistory(limit);
  }

  RestoredSession session;
  Externals externals(isCancelled);
  Place place{.saved = std::max<std::int64_t>(saved.queueIndex, 0)};
  for (std::size_t i = 0; i < saved.queueIds.size(); ++i) {
    if (static_cast<std::int64_t>(i) == place.saved) place.leftBefore = session.timeline.size();
    std::optional<TrackInfo> info =
        isExternal(i) ? externals.take(saved.externals.at(i)) : records.take(saved.queueIds[i]);
    if (info) session.timeline.push_back(std::move(*info));
  }
  for (const std::int64_t id : saved.autoplayIds) {
    if (auto info = records.take(id)) session.autoplayQueue.push_back(std::move(*info));
  }
  std::optional<TrackInfo> current =
      saved.externalTrack ? externals.take(*saved.externalTrack) : records.take(saved.trackId);
  if (!current && session.timeline.empty()) {
    log::line("📂 Restore: no tracks found in DB");
    return {};
  }
  if (session.timeline.empty()) session.timeline.push_back(*current);
  place.size = session.timeline.size();
  const std::size_t index = indexOf(current ? &*current : nullptr, session.timeline, place);
  session.timelineIndex = static_cast<int>(index);
  session.currentTrack = current ? *current : session.timeline[index];
  setTimes(session, saved, current.has_value());
  session.isPlayingAutoplay = current && saved.isAutoplay;
  setHistory(session, std::move(rows), current ? saved.historyNavOffset : std::nullopt);

  log::line(
      "📂 Restore: done — track=\"{}\" idx={}/{} pos={:.1f} autoplay={} isAutoplay={} history={} "
      "histNav={}",
      session.currentTrack.track.title, index, session.timeline.size(), session.currentPosition,
      session.autoplayQueue.size(), session.isPlayingAutoplay, session.history.size(),
      session.historyNavigationIndex ? std::to_string(*session.historyNavigationIndex) : "nil");
  return {std::move(session), false};
}

}  // namespace

RestoreOutcome restoreSession(const SavedSession& saved, DatabaseManager* database,
                              const std::function<bool()>& isCancelled) {
  // A database that is away for the moment would answer that nothing is there.
  if (database != nullptr && !database->dbQueue()) return {{}, true};
  try {
    return restore(saved, database, isCancelled);
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ Restore: the library cannot be read: {}", error.what());
  } catch (const Cancelled&) {
  }
  return {{}, true};
}

SessionRestorer::SessionRestorer(Preferences& preferences,
                                 std::shared_ptr<DatabaseManager> database)
    : _preferences(preferences), _database(std::move(database)) {}

SessionRestorer::~SessionRestorer() {
  _cancelled->store(true);
}

void SessionRestorer::restore(std::function<void(RestoreOutcome)> done) {
  _queue.async([this, cancelled = _cancelled, done = std::move(done)] {
    RestoreOutcome outcome;
    if (const auto saved = SessionStore(_preferences).load()) {
      outcome = restoreSession(*saved, _database.get(), [&] { return cancelled->load(); });
    }
    MainThread::instance().post(
        [cancelled, done, outcome = std::make_shared<RestoreOutcome>(std::move(outcome))] {
          if (!cancelled->load()) done(std::move(*outcome));
        });
  });
}

}  // namespace velorin
