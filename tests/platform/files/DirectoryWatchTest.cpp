#include "platform/files/DirectoryWatch.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;
using Paths = std::set<std::string>;

/// What happened is in the queue when the call that did it returns: nothing is waited for.
class DirectoryWatchTest : public testing::Test {
 protected:
  void watch(std::vector<std::string> roots) {
    auto made = DirectoryWatch::create(
        std::move(roots), {[](std::string_view name, bool) { return name.starts_with('.'); }});
    ASSERT_TRUE(made) << made.error();
    watching = std::move(made).value();
    DirectoryWatch::Changes ignored;
    watching->watchAll(ignored);
  }
  void write(const std::string& name) { std::ofstream(root / name) << "x"; }
  void makeFolders(const std::string& name) { fs::create_directories(root / name); }

  /// What changed, as names below the root.
  Paths changed() {
    DirectoryWatch::Changes changes;
    watching->drain(changes);
    watching->settle(changes);
    areLost = changes.areLost;
    Paths names;
    for (const auto& path : changes.paths) {
      names.insert(path == root.path() ? "/" : path.substr(root.path().string().size() + 1));
    }
    return names;
  }

  test::TemporaryFolder root;
  std::unique_ptr<DirectoryWatch> watching;
  bool areLost = false;
};

TEST_F(DirectoryWatchTest, TellsWhatHappens) {
  makeFolders("a/b");
  makeFolders(".hidden");
  write("a/b/1");
  test::TemporaryFolder outside;
  watch({root.path(), root / "a"});
  const struct {
    const char* what;
    std::function<void()> happens;
    Paths told;
    bool areLost = false;
  } steps[] = {
      {"nothing", [] {}, {}},
      {"written", [&] { write("a/b/1"); }, {"a/b/1"}},
      {"hidden", [&] { write(".x"), write(".hidden/x"); }, {}},
      {"folders with content",
       [&] { makeFolders("c/d/e"), write("c/d/e/1"), makeFolders("c/.git"), write("c/.git/1"); },
       {"c", "c/d", "c/d/e", "c/d/e/1"}},
      {"in a new folder", [&] { write("c/d/e/2"); }, {"c/d/e/2"}},
      {"attributes", [&] { fs::permissions(root / "c/d/e/2", fs::perms(0600)); }, {"c/d/e/2"}},
      {"file moved", [&] { fs::rename(root / "c/d/e/2", root / "a/2"); }, {"c/d/e/2", "a/2"}},
      {"folder moved",
       [&] { fs::rename(root / "c/d", root / "a/d"); },
       {"c/d", "a/d", "c/d/e", "a/d/e", "c/d/e/1", "a/d/e/1"}},
      {"in a moved folder", [&] { write("a/d/e/1"); }, {"a/d/e/1"}},
      {"moved in", [&] { fs::rename(outside.path(), root / "in"); }, {"in"}},
      {"written there", [&] { write("in/1"); }, {"in/1"}},
      {"moved out", [&] { fs::rename(root / "in", outside.path()); }, {"in"}, true},
      {"written outside", [&] { std::ofstream(outside / "1") << "y"; }, {}},
      {"hidden by name", [&] { fs::rename(root / "a/d", root / "a/.d"); }, {"a/d"}, true},
      {"shown again",
       [&] { fs::rename(root / "a/.d", root / "a/d"); },
       {"a/d", "a/d/e", "a/d/e/1"}},
      {"removed", [&] { fs::remove_all(root / "a/d"); }, {"a/d", "a/d/e", "a/d/e/1"}},
      {"the same name again", [&] { makeFolders("a/d"), write("a/d/1"); }, {"a/d", "a/d/1"}},
      {"link to a folder",
       [&] { fs::create_directory_symlink(outside.path(), root / "link"); },
       {"link", "link/1"}},
      {"behind the link", [&] { std::ofstream(outside / "2") << "y"; }, {"link/2"}},
      {"loops", [&] { fs::create_directory_symlink(root.path(), root / "a/loop"); }, {"a/loop"}},
      {"link removed", [&] { fs::remove(root / "link"); }, {"link"}, true},
      {"behind it", [&] { std::ofstream(outside / "3") << "y"; }, {}},
  };
  for (const auto& step : steps) {
    step.happens();
    EXPECT_EQ(changed(), step.told) << step.what;
    EXPECT_EQ(areLost, step.areLost) << step.what;
  }
}

TEST_F(DirectoryWatchTest, AnOverflowingQueueLosesNoFolder) {
  makeFolders("a");
  write("1");
  write("2");
  watch({root.path()});
  int most = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
  ASSERT_GT(most, 0);
  for (int i = 0; i <= most; ++i) {
    ::chmod((root / (i % 2 == 0 ? "1" : "2")).c_str(), 0600);  // one twice would be one event
  }
  makeFolders("a/new");
  changed();
  EXPECT_TRUE(areLost);
  write("a/new/1");
  EXPECT_EQ(changed(), Paths{"a/new/1"});
  EXPECT_FALSE(areLost);
}

TEST_F(DirectoryWatchTest, TheLimitOfWatchesIsTold) {
  makeFolders("a/b/c/d");
  const auto inLimits = [&] {
    // Its own user namespace has its own limit.
    if (::unshare(CLONE_NEWUSER) != 0) ::_exit(77);
    std::ofstream limit("/proc/sys/user/max_inotify_watches");
    if (!(limit << 3 << std::flush)) ::_exit(77);
    const auto limited =
        std::move(DirectoryWatch::create({root.path()}, DirectoryWatch::Options{})).value();
    DirectoryWatch::Changes changes;
    limited->watchAll(changes);
    const bool isTold = limited->isLimitReached() && changes.areLost;
    changes = {};
    limited->watchAll(changes);
    ::_exit(isTold && !changes.areLost && limited->folderCount() == 3 ? 0 : 1);
  };
  int status = 0;
  EXPECT_EXIT(
      inLimits(), [&](int ended) { return WIFEXITED(status = ended); }, "");
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "this machine has no user namespaces";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace velorin
