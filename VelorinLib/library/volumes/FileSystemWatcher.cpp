#include "library/volumes/FileSystemWatcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "foundation/Log.h"
#include "foundation/Mutex.h"
#include "foundation/SerialQueue.h"
#include "foundation/ThreadName.h"
#include "library/scan/SupportedFiles.h"
#include "platform/files/DirectoryWatch.h"

namespace velorin {
namespace {

constexpr const char* kQueueLabel = "com.velorin.fswatcher";
// More are worth a scan, and would only take memory.
constexpr std::size_t kMostPaths = 10'000;

bool isIgnored(std::string_view name, bool isFolder) {
  return isFolder ? isPassedOver(name) : name.starts_with('.');
}

}  // namespace

struct FileSystemWatcher::Impl {
  Impl(std::vector<std::string> watched, OnChanges callback, std::chrono::milliseconds delay)
      : onChanges(std::move(callback)),
        latency(delay),
        stopEvent(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        folders(std::move(watched)) {}
  ~Impl() {
    stop();
    ::close(stopEvent);
  }

  void start() EXCLUDES(lifecycle) {
    const MutexLock lock(lifecycle);
    restart();
  }
  void stop() EXCLUDES(lifecycle) {
    const MutexLock lock(lifecycle);
    end();
  }
  void update(std::vector<std::string> watched) EXCLUDES(lifecycle) {
    const MutexLock lock(lifecycle);
    end();
    folders = std::move(watched);
    restart();
  }

  void restart() REQUIRES(lifecycle) {
    end();
    if (folders.empty()) return;
    isStopping = false;
    // Thousands of folders take their time: on the queue.
    queue.async(
        [this, watched = folders, since = DirectoryWatch::now()] { begin(watched, since); });
  }

  void end() REQUIRES(lifecycle) {
    isStopping = true;
    ::eventfd_write(stopEvent, 1);
    queue.sync([] {});  // whatever began has ended now, and begins no more
    if (waiter.joinable()) waiter.join();
    queue.sync([this] {
      ++generation;
      watch.reset();
      pending = {};
      isTellingPlanned = false;
    });
    eventfd_t ignored = 0;
    ::eventfd_read(stopEvent, &ignored);
  }

  // From here on everything happens on the queue.

  void begin(const std::vector<std::string>& watched, const timespec& since) {
    if (isStopping) return;
    auto made = DirectoryWatch::create(watched, {isIgnored, [this] { return !isStopping; }, since});
    if (!made) {
      log::line("❌ FileSystemWatcher: changes of the music folders cannot be watched: {}",
                made.error());
      return;
    }
    watch = std::move(made).value();
    take([this] { watch->watchAll(pending); });
    if (isStopping) return;
    waiter = std::thread([this, descriptor = watch->descriptor()] { waitForEvents(descriptor); });
    log::line("👁️ FileSystemWatcher: watching {} path(s) (lastEventId: none), {} folder(s)",
              watched.size(), watch->folderCount());
  }

  /// Does something that may find changes, and plans to tell them.
  template <class Work>
  void take(Work&& work) {
    const bool wasLimited = watch->isLimitReached();
    work();
    if (watch->isLimitReached() && !wasLimited) {
      log::line(
          "⚠️ FileSystemWatcher: more folders than the system lets a user watch; changes in "
          "some "
          "are not seen. Raise the limit, such as: sysctl fs.inotify.max_user_watches=1048576");
    }
    if (pending.paths.size() > kMostPaths) {
      pending.paths.clear();
      pending.areLost = true;
    }
    if (pending.empty() || isTellingPlanned) return;
    isTellingPlanned = true;
    queue.asyncAfter(latency, [this, planned = generation] {
      if (planned == generation && !isStopping) tell();
    });
  }

  void tell() {
    watch->drain(pending);
    watch->settle(pending);
    isTellingPlanned = false;
    const auto changes = std::exchange(pending, {});
    onChanges({{changes.paths.begin(), changes.paths.end()}, changes.areLost});
  }

  /// The one thing on a thread of its own: to wait for events costs nothing there.
  void waitForEvents(int descriptor) {
    nameThisThread("com.velorin.fswatcher.wait");
    pollfd waits[] = {{descriptor, POLLIN, 0}, {stopEvent, POLLIN, 0}};
    while (!isStopping) {
      if (::poll(waits, 2, -1) < 0 && errno != EINTR) return;
      if (waits[1].revents != 0) return;
      if (waits[0].revents == 0) continue;
      queue.sync([this] {
        if (!isStopping) take([this] { watch->drain(pending); });
      });
    }
  }

  const OnChanges onChanges;
  const std::chrono::milliseconds latency;
  const int stopEvent;
  std::atomic<bool> isStopping{true};

  Mutex lifecycle;  // one start, stop or update at a time
  std::vector<std::string> folders GUARDED_BY(lifecycle);

  // Touched on the queue; the waiter is joined while nothing runs there that could start another.
  std::unique_ptr<DirectoryWatch> watch;
  DirectoryWatch::Changes pending;
  bool isTellingPlanned = false;
  std::uint64_t generation = 0;  // of what is watched; delayed work of an older one is void
  std::thread waiter;

  SerialQueue queue{kQueueLabel};  // ends first
};

FileSystemWatcher::FileSystemWatcher(std::vector<std::string> folders, OnChanges onChanges,
                                     std::chrono::milliseconds latency)
    : _impl(std::make_unique<Impl>(std::move(folders), std::move(onChanges), latency)) {}

FileSystemWatcher::~FileSystemWatcher() = default;

void FileSystemWatcher::start() {
  _impl->start();
}

void FileSystemWatcher::stop() {
  _impl->stop();
}

void FileSystemWatcher::update(std::vector<std::string> folders) {
  _impl->update(std::move(folders));
}

FileSystemWatcher::Replay FileSystemWatcher::replay(const std::vector<std::string>& /*folders*/,
                                                    std::chrono::milliseconds /*timeout*/) {
  log::line("👁️ Journal replay: no persisted eventId, needs full scan");
  return {};
}

}  // namespace velorin
