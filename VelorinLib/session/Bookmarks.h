// The bookmarks of the current track: at most ten, in the order of their positions.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/SerialQueue.h"
#include "records/TrackInfo.h"

namespace velorin {

class DatabaseManager;

/// Changes are written to the library in the background and show once they are there; each builds
/// on those before it. A change that cannot be written is logged and leaves the list as it was.
///
/// Main thread.
class Bookmarks {
 public:
  static constexpr std::size_t kMost = 10;

  struct Services {
    std::shared_ptr<DatabaseManager> database;  ///< without it nothing can be changed
    std::function<void()> beep;                 ///< an eleventh bookmark; may be empty
    /// The list of this track is stored: its copies are to be updated. An empty list stands as none
    /// in a track. Called after list() has it, when the track is still the current one.
    std::function<void(std::int64_t trackId, const std::vector<TrackBookmark>&)> stored;
  };

  explicit Bookmarks(Services services);
  /// Waits for the write that is on its way.
  ~Bookmarks();

  /// There is another current track, or none, or its record was read anew.
  void reload(const std::optional<TrackInfo>& currentTrack);

  const std::vector<TrackBookmark>& list() const noexcept { return _list; }

  /// Seconds; below 0 counts as 0, and what is no number is ignored. Nothing happens for a track
  /// without an id. The colour follows from the number of bookmarks, so that two may share one.
  void add(double position);
  /// Unknown ids do nothing, here and below.
  void remove(const std::string& id);
  /// An empty label becomes none; what is not given stays.
  void update(const std::string& id, std::optional<std::string> label,
              std::optional<std::string> color);

 private:
  struct Written;
  void store(std::vector<TrackBookmark> wished);
  void written(const Written& result);
  std::vector<TrackBookmark> latest() const;

  const Services _services;
  std::optional<std::int64_t> _trackId;
  std::vector<TrackBookmark> _list;
  /// What the writes that are on their way will leave, and the number of the newest.
  std::optional<std::vector<TrackBookmark>> _wished;
  std::uint64_t _newest = 0;
  std::shared_ptr<bool> _alive = std::make_shared<bool>(true);
  SerialQueue _writes{"com.velorin.bookmarks"};
};

}  // namespace velorin
