// The colour of the playing album, which tints the interface.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>

#include "foundation/SerialQueue.h"
#include "library/DatabaseHandle.h"
#include "library/artwork/AccentColor.h"

namespace velorin {

class ArtworkCacheManager;

/// Main thread. A colour is computed once and kept in the library; the database and the picture
/// are read on a queue of its own, so that nothing here waits.
class AccentColorManager {
 public:
  using Task = std::function<void()>;
  /// How it meets the main thread: MainThread's operations, or a test's.
  struct MainLoop {
    std::function<void(Task)> post;  ///< from any thread
    std::function<void(std::chrono::milliseconds, Task)> postAfter;
  };

  /// Until an album has stayed for so long, nothing is computed for it.
  static constexpr std::chrono::milliseconds kDebounce{200};

  /// All of them outlive it. The destructor waits for a picture that is being read.
  AccentColorManager(const DatabaseHandle& database, const ArtworkCacheManager& artwork,
                     MainLoop mainLoop);
  ~AccentColorManager();
  AccentColorManager(const AccentColorManager&) = delete;
  AccentColorManager& operator=(const AccentColorManager&) = delete;

  /// Another album plays, or none. The colour follows after kDebounce, and what was asked for
  /// before is dropped.
  void update(std::optional<std::int64_t> albumId);

  /// The colour to show; nothing: the system's accent colour.
  const std::optional<HSBColor>& currentAccent() const { return _currentAccent; }

  /// Called after each change of currentAccent(). The interface passes from one colour to the next
  /// within kFadeSeconds.
  void setObserver(std::function<void()> changed) { _changed = std::move(changed); }
  static constexpr double kFadeSeconds = 0.6;

 private:
  /// What was found for an album; it is stored in the library when it was computed.
  struct Found {
    std::optional<HSBColor> color;
    bool isComputed = false;
  };

  void settle(std::optional<std::int64_t> albumId);
  Found find(std::int64_t albumId) const;
  void take(std::int64_t albumId, const Found& found);
  void store(std::int64_t albumId, const HSBColor& color) const;
  void publish(const std::optional<HSBColor>& color);

  /// Runs the task unless update() was called again, or this object is gone.
  Task ifStillWanted(Task task) const;

  const DatabaseHandle& _database;
  const ArtworkCacheManager& _artwork;
  const MainLoop _mainLoop;
  std::optional<HSBColor> _currentAccent;
  std::unordered_map<std::int64_t, std::optional<HSBColor>> _cache;
  std::function<void()> _changed;
  std::shared_ptr<int> _debounceTask;  ///< alive while its task is wanted
  SerialQueue _extraction;             ///< last: its tasks use the fields above
};

}  // namespace velorin
