#include "library/volumes/FileSystemWatcher.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "foundation/Log.h"
#include "foundation/Mutex.h"
#include "support/MountNamespace.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

class WatcherTest : public testing::Test {
 protected:
  FileSystemWatcher::OnChanges take() {
    return [this](FileSystemWatcher::Changes changes) {
      const MutexLock lock(mutex);
      isEmpty = isEmpty || (changes.paths.empty() && !changes.mustScanSubDirs);
      told.insert(changes.paths.begin(), changes.paths.end());
      mustScan = mustScan || changes.mustScanSubDirs;
      hasChanged.notifyAll();
    };
  }
  bool waitFor(const std::function<bool()>& holds) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    const MutexLock lock(mutex);
    while (!holds()) {
      if (!hasChanged.waitUntil(mutex, deadline)) return holds();
    }
    return true;
  }
  bool waitForPath(const std::string& path) {
    return waitFor([&]() NO_THREAD_SAFETY_ANALYSIS { return told.contains(path); });
  }

  test::TemporaryFolder root;
  log::Capture log;
  Mutex mutex;
  ConditionVariable hasChanged;
  std::set<std::string> told GUARDED_BY(mutex);
  bool mustScan GUARDED_BY(mutex) = false;
  bool isEmpty GUARDED_BY(mutex) = false;
};

TEST_F(WatcherTest, TellsChangesUntilItStops) {
  std::filesystem::create_directories(root / "a/lost+found");
  std::filesystem::create_directories(root / "b");
  FileSystemWatcher watcher({root / "a"}, take(), 1ms);
  watcher.start();
  // Before everything is watched, perhaps: it must be told all the same.
  std::ofstream(root / "a/early.flac") << "x";
  EXPECT_TRUE(waitForPath(root / "a/early.flac"));
  ASSERT_TRUE(log.waitFor("watching 1 path(s)", 20s));

  watcher.update({root / "b", root / "missing"});
  ASSERT_TRUE(log.waitFor("watching 2 path(s)", 20s));
  std::ofstream(root / "a/late.flac") << "x";
  std::ofstream(root / "b/1.flac") << "x";
  EXPECT_TRUE(waitForPath(root / "b/1.flac"));

  watcher.stop();
  watcher.stop();
  std::ofstream(root / "b/2.flac") << "x";
  watcher.start();
  watcher.update({});
  watcher.update({root / "b"});
  std::ofstream(root / "b/3.flac") << "x";
  EXPECT_TRUE(waitForPath(root / "b/3.flac"));
  const MutexLock lock(mutex);
  EXPECT_FALSE(told.contains(root / "a/late.flac"));
  EXPECT_FALSE(isEmpty);
}

TEST_F(WatcherTest, AnUnmountedFolderIsToLookAtAnew) {
  if (!test::MountNamespace::mayMount()) GTEST_SKIP() << "this machine lets nobody mount";
  ASSERT_EQ(::mount("velorin-test", root.path().c_str(), "tmpfs", 0, "size=64k"), 0);
  FileSystemWatcher watcher({root.path()}, take(), 1ms);
  watcher.start();
  ASSERT_TRUE(log.waitFor("watching 1 path(s)", 20s));
  ASSERT_EQ(::umount2(root.path().c_str(), 0), 0);
  EXPECT_TRUE(waitFor([&]() NO_THREAD_SAFETY_ANALYSIS { return mustScan; }));
}

}  // namespace
}  // namespace velorin
