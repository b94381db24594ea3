#include "library/scan/FolderEnumeration.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <numeric>
#include <thread>

#include "foundation/Log.h"
#include "foundation/OperationQueue.h"
#include "foundation/Text.h"
#include "foundation/ThreadName.h"
#include "library/scan/ScanText.h"

namespace velorin {
namespace {

/// After so long without progress the listener is told what is being waited for.
constexpr std::chrono::seconds kNotable{5};

/// One walk. Owned by its thread and by the one that watches it.
class WatchedWalk : public FolderVisitor {
 public:
  WatchedWalk(std::string folder, FolderEnumeration::IsCancelled isCancelled,
              FolderEnumeration::TakeAudio takeAudio)
      : _folder(std::move(folder)),
        _isCancelled(std::move(isCancelled)),
        _takeAudio(std::move(takeAudio)) {}

  EnumAccumulator& found() noexcept { return _found; }

  void run(const WalkFolder& walk) {
    try {
      walk(_folder, *this);
    } catch (const std::exception& error) {
      // Out of memory: as good as a folder that could not be listed.
      log::line("⚠️ {}: the walk failed: {}", _folder, error.what());
      _found.addUnseen({_folder, ENOMEM});
    }
    const MutexLock lock(_lock);
    _done = true;
    _changed.notifyAll();
  }

  /// False when the walk is not done by then.
  bool waitUntilDone(ScanSettings::Milliseconds most) {
    const auto deadline = std::chrono::steady_clock::now() + most;
    const MutexLock lock(_lock);
    while (!_done) {
      if (!_changed.waitUntil(_lock, deadline)) return _done;
    }
    return true;
  }

  bool step() override {
    if (_found.isCancelled()) return false;
    // The clock and the scan's own flag cost more than the rest of a step.
    constexpr unsigned kSeldom = 32;
    if (++_steps % kSeldom != 0) return true;
    _found.noteProgress();
    if (!_isCancelled()) return true;
    _found.cancel();
    return false;
  }

  bool file(const WalkedFile& file) override {
    if (_found.isCancelled()) return false;
    switch (file.kind) {
      case FileKind::cueSheet:
        _found.addCueSheet(std::string(file.path));
        return true;
      case FileKind::playlist:
        _found.addPlaylist(std::string(file.path));
        return true;
      case FileKind::audio:
        break;
    }
    if (!_takeAudio) {
      _found.addAudio(file);
      return true;
    }
    _found.setHandingOver(true);
    const bool on = _takeAudio(file);
    _found.setHandingOver(false);
    // Nobody takes any more: the rest of the folder is not seen.
    if (!on) _found.cancel();
    return on;
  }

  void unseen(UnseenFolder folder) override { _found.addUnseen(std::move(folder)); }

 private:
  const std::string _folder;
  const FolderEnumeration::IsCancelled _isCancelled;
  const FolderEnumeration::TakeAudio _takeAudio;
  unsigned _steps = 0;  // the walking thread's
  EnumAccumulator _found;
  Mutex _lock;
  ConditionVariable _changed;
  bool _done GUARDED_BY(_lock) = false;
};

}  // namespace

std::size_t EnumeratedFolders::cueCount() const {
  return std::accumulate(
      folders.begin(), folders.end(), std::size_t{0},
      [](std::size_t sum, const auto& each) { return sum + each.cueFiles.size(); });
}

std::size_t EnumeratedFolders::audioCount() const {
  return std::accumulate(
      folders.begin(), folders.end(), std::size_t{0},
      [](std::size_t sum, const auto& each) { return sum + each.audioFiles.size(); });
}

std::vector<std::string> EnumeratedFolders::timedOut() const {
  std::vector<std::string> paths;
  for (const FolderEnumResult& each : folders) {
    if (each.timedOut) paths.push_back(each.folder);
  }
  return paths;
}

std::vector<std::string> outermostFolders(const std::vector<std::string>& folders) {
  std::vector<std::string> outermost;
  for (const std::string& folder : folders) {
    const bool isInside = std::ranges::any_of(folders, [&](const std::string& other) {
      return other != folder && isReachable(folder + "/x", {other});
    });
    if (!isInside && std::ranges::find(outermost, folder) == outermost.end()) {
      outermost.push_back(folder);
    }
  }
  return outermost;
}

FolderEnumeration::FolderEnumeration(const ScanSettings& settings, IsCancelled isCancelled,
                                     UpdateStatus updateStatus)
    : _settings(settings),
      _isCancelled(std::move(isCancelled)),
      _updateStatus(std::move(updateStatus)) {}

FolderEnumResult FolderEnumeration::enumerateFolder(const std::string& folder,
                                                    ScanSettings::Milliseconds stall,
                                                    const TakeAudio& takeAudio) const {
  const std::string name = lastComponent(folder);
  log::line("📂 Enumerating: {} ({})", name, folder);
  const Stopwatch watch;
  // The walk counts what it hands over; the result cannot.
  const auto handedOver = std::make_shared<std::atomic<std::size_t>>(0);
  TakeAudio counted;
  if (takeAudio) {
    counted = [takeAudio, handedOver](const WalkedFile& file) {
      ++*handedOver;
      return takeAudio(file);
    };
  }
  const auto walk = std::make_shared<WatchedWalk>(folder, _isCancelled, std::move(counted));
  std::thread thread([walk, run = _settings.walk] {
    nameThisThread("com.velorin.scanner.walk");
    walk->run(run);
  });

  bool timedOut = false;
  bool isLeftBehind = false;
  bool isAnnounced = false;
  while (!isLeftBehind && !walk->waitUntilDone(_settings.watchRound)) {
    EnumAccumulator& found = walk->found();
    const auto stalledFor = found.stalledFor();
    if (_isCancelled()) {
      isLeftBehind = true;
    } else if (stalledFor > stall) {
      timedOut = isLeftBehind = true;
    } else if (stalledFor > kNotable && !isAnnounced) {
      isAnnounced = true;
      _updateStatus(fmt::format("Waiting for {}…", text::toValidUTF8(name)));
    }
    if (isLeftBehind) found.cancel();
  }
  const bool cancelled = !timedOut && walk->found().isCancelled();
  if (isLeftBehind) {
    thread.detach();
  } else {
    thread.join();
  }

  FolderEnumResult result = walk->found().take();
  result.folder = folder;
  result.timedOut = timedOut;
  result.cancelled = cancelled;
  result.elapsed = watch.seconds();
  const std::size_t audio = takeAudio ? handedOver->load() : result.audioFiles.size();
  for (const UnseenFolder& unseen : result.unseen) {
    if (unseen.path == folder) log::line("📂 {}: failed to create enumerator", name);
  }
  log::line("📂 {}: {} CUE + {} audio {}{:.1f}s", name, result.cueFiles.size(), audio,
            timedOut ? "— STALLED after " : "in ", result.elapsed);
  return result;
}

EnumeratedFolders FolderEnumeration::stream(const std::vector<std::string>& folders,
                                            ScanSettings::Milliseconds stall,
                                            const TakeAudio& takeAudio) const {
  const Stopwatch watch;
  EnumeratedFolders all;
  // Until told otherwise nothing is known of a folder, which is not the same as an empty one.
  for (const std::string& folder : folders) {
    all.folders.emplace_back().folder = folder;
    all.folders.back().timedOut = true;
  }
  {
    OperationQueue queue("com.velorin.scanner.enumerate", concurrency());
    for (std::size_t i = 0; i < folders.size(); ++i) {
      // Each result has a place of its own.
      queue.add([&, i](std::stop_token) {
        all.folders[i] = enumerateFolder(folders[i], stall, takeAudio);
      });
    }
    queue.waitUntilDone();
  }
  all.elapsed = watch.seconds();
  return all;
}

EnumeratedFolders FolderEnumeration::enumerateFolders(const std::vector<std::string>& folders,
                                                      ScanSettings::Milliseconds stall) const {
  _updateStatus("Enumerating files…");
  EnumeratedFolders all = stream(folders, stall, {});
  log::line("📂 Total: {} CUE + {} audio from {} folder(s) in {:.1f}s", all.cueCount(),
            all.audioCount(), folders.size(), all.elapsed);
  if (const auto stalled = all.timedOut().size(); stalled > 0) {
    log::line("⚠️ {} folder(s) timed out during enumeration", stalled);
  }
  return all;
}

std::size_t FolderEnumeration::concurrency() {
  return std::min<std::size_t>(2 * std::max(1U, std::thread::hardware_concurrency()), 16);
}

}  // namespace velorin
