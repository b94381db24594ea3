#include "engine/memory/MemoryPlayback.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <fstream>

#include "engine/EngineHarness.h"
#include "engine/memory/MemoryFileHandle.h"
#include "support/Eventually.h"

namespace velorin::test {
namespace {

void writeFile(const std::filesystem::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

std::size_t countOf(const log::Capture& log, std::string_view text) {
  const auto lines = log.lines();
  return static_cast<std::size_t>(std::ranges::count_if(
      lines, [&](const std::string& line) { return line.find(text) != std::string::npos; }));
}

TEST(MemoryStorage, TakesAFileUpToTheLimitAndSaysWhyNot) {
  const TemporaryFolder folder;
  constexpr std::int64_t kMB = 1 << 20;
  const std::string inside = "/file \xff\n.bin";
  struct Case {
    const char* what;
    std::int64_t size;
    std::int64_t limit;
    std::string line;
    bool isLoaded;
  };
  for (const Case& c : std::vector<Case>{
           {"exactly the limit", 3 * kMB, 3 * kMB, "📦 Loaded file into memory: ", true},
           {"one byte more", 3 * kMB + 1, 3 * kMB,
            "⚠️ Memory playback: file 3.0 MB exceeds RAM limit 3 MB, playing from disk", false},
           {"one byte", 1, 1, "(0.0 MB)", true},
           {"empty", 0, kMB, "", false},
           {"not to be had", std::int64_t{1} << 42, INT64_MAX,
            "⚠️ Memory playback: malloc failed for 4194304.0 MB", false}}) {
    SCOPED_TRACE(c.what);
    const log::Capture log;
    const std::string path = folder.path().native() + inside;
    std::ofstream(path).put('x');
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(c.size));
    const auto storage = MemoryStorage::load(path, c.limit);
    ASSERT_EQ(storage != nullptr, c.isLoaded);
    EXPECT_EQ(log.lines().size(), c.line.empty() ? 0u : 1u);
    EXPECT_TRUE(c.line.empty() || log.contains(c.line));
    if (!storage) continue;
    EXPECT_EQ(storage->bytes().size(), static_cast<std::size_t>(c.size));
    EXPECT_EQ(storage->bytes()[0], std::byte{'x'});
  }
  EXPECT_EQ(MemoryStorage::load(folder.path() / "absent", kMB), nullptr);
  EXPECT_EQ(MemoryStorage::load(folder.path(), kMB), nullptr);
}

TEST(MemoryStorage, TakesAFileOfTwoGibibytes) {
  const TemporaryFolder folder;
  constexpr std::int64_t kSize = (std::int64_t{1} << 31) + 3;
  std::int64_t available = 0;
  std::ifstream info("/proc/meminfo");
  for (std::string word; info >> word;) {
    if (word == "MemAvailable:") info >> available;
  }
  if (available * 1024 < 2 * kSize) GTEST_SKIP() << "needs 4 GiB of free memory";
  const std::string path = folder / "sparse.wav";
  writeFile(path, "");
  std::filesystem::resize_file(path, kSize);
  std::fstream(path, std::ios::in | std::ios::out).seekp(kSize - 1).put('z');
  StorageCache cache{std::vector<std::string>{}};
  const auto handle = MemoryFileHandle::open(path, std::int64_t{3} << 30, cache);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->size(), static_cast<std::uint64_t>(kSize));
  handle->seek(static_cast<std::uint64_t>(kSize) - 1);
  EXPECT_EQ(handle->read(5), std::vector{std::byte{'z'}});
  handle->seek(UINT64_MAX);
  EXPECT_EQ(handle->offset(), static_cast<std::uint64_t>(kSize));
  EXPECT_TRUE(handle->read(1).empty());
}

TEST(StorageCache, KeepsTheLastTrackAndFindsWhatIsInUse) {
  const TemporaryFolder folder;
  const log::Capture log;
  StorageCache cache{std::vector<std::string>{}};
  const auto load = [&](const char* name, auto... role) {
    return MemoryFileHandle::open(folder / name, 1000, cache, role...);
  };
  auto wasReused = [&, seen = std::size_t{0}](const char* name) mutable {
    const std::size_t before = std::exchange(seen, countOf(log, "Reusing cached"));
    return seen > before &&
           log.lines().back() == std::string("📦 Reusing cached memory storage for: ") + name;
  };
  for (const char* name : {"a", "a2", "b"}) writeFile(folder / name, std::string("of ") + name);

  load("a");
  load("a2", StorageCache::Role::beside);
  EXPECT_EQ(load("a")->size(), 4u);
  EXPECT_TRUE(wasReused("a"));
  load("a2", StorageCache::Role::beside);
  EXPECT_TRUE(wasReused("a2")) << "a companion does not drive its track out";
  auto playing = load("b");
  EXPECT_EQ(cache.find(folder / "a"), nullptr) << "only one track is kept";
  EXPECT_EQ(cache.find(folder / "a2"), nullptr);
  EXPECT_EQ(playing->storage().activeReaders(), 1);

  // What plays is found though another is kept; where the file is away it serves still.
  load("a");
  std::filesystem::rename(folder / "b", folder / "away");
  load("b");
  EXPECT_TRUE(wasReused("b"));
  std::filesystem::rename(folder / "away", folder / "b");

  // A file that was replaced is read again, and what plays keeps what it has.
  writeFile(folder / "new", "replaced");
  std::filesystem::rename(folder / "new", folder / "b");
  EXPECT_EQ(load("b")->size(), 8u);
  EXPECT_FALSE(wasReused("b"));
  EXPECT_EQ(load("b")->size(), 8u) << "of two images of a path the new one counts";
  EXPECT_EQ(playing->size(), 4u);
  EXPECT_EQ(playing->read(9).size(), 4u);

  cache.dropAll();
  cache.dropAll();
  EXPECT_EQ(countOf(log,
                    "🧠 MemoryFileHandle: dropping in-RAM track cache due to system memory "
                    "pressure"),
            1u);
  EXPECT_EQ(cache.find(folder / "b"), nullptr);
}

TEST(MemoryPressure, CallsItsHandlerAndEnds) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const FileDescriptor far(ends[0]);
  std::atomic<int> calls{0};
  {
    // Out-of-band data is what a socket has to show priority with.
    const MemoryPressure watch(FileDescriptor(ends[1]), [&, near = ends[1]] {
      char byte = 0;
      if (::recv(near, &byte, 1, MSG_OOB) == 1) ++calls;
    });
    for (int i = 1; i <= 3; ++i) {
      if (::send(far.get(), "!", 1, MSG_OOB) != 1) GTEST_SKIP() << "no out-of-band data here";
      ASSERT_TRUE(eventually([&] { return calls == i; }));
    }
  }
  const log::Capture log;
  EXPECT_EQ(MemoryPressure::watch({"/absent/memory"}, [] {}), nullptr);
  EXPECT_EQ(countOf(log, "Memory pressure is not watched"), 1u);
}

TEST(MemoryPlayback, TracksPlayFromRAMThroughPressureAndReplacement) {
  EngineHarness harness(wideDevice(VirtualClock::manual));
  // Longer than the ring, so that its decoder stays open.
  const FlacRecipe recipe{.channels = 1, .frames = 2'000'000};
  const Track track = harness.file("a.flac", recipe);
  AudioEngine& engine = *harness.engine;
  EXPECT_FALSE(engine.memoryPlayback());
  EXPECT_EQ(engine.memoryPlaybackLimitMB(), 256);
  engine.setMemoryPlaybackLimitMB(0);
  EXPECT_EQ(engine.memoryPlaybackLimitMB(), 256);

  engine.play(track);
  EXPECT_FALSE(engine.facts().isInMemory);
  engine.setMemoryPlayback(true);
  engine.play(track);
  EXPECT_TRUE(engine.facts().isInMemory);
  EXPECT_TRUE(harness.log.contains("📦 FLAC decoder: reading from memory"));
  engine.play(track);
  EXPECT_EQ(countOf(harness.log, "📦 Loaded file into memory: a.flac"), 1u);
  EXPECT_EQ(countOf(harness.log, "📦 Reusing cached memory storage for: a.flac"), 1u);

  // The image is gone from the cache, and the file from under its name: the sound does not mind.
  StorageCache::shared().dropAll();
  std::filesystem::resize_file(track.filePath, 100);
  engine.seek(5);
  ASSERT_TRUE(harness.waitUntil([&] { return engine.canRender(500); }));
  EXPECT_EQ(harness.heard(500), harness.expected(5 * 44'100, 500));

  harness.file("a.flac", recipe);
  engine.play(track);
  EXPECT_EQ(countOf(harness.log, "📦 Loaded file into memory: a.flac"), 2u);

  // Another track ahead drives the playing one's image out of the cache, but not out of use.
  const Track next = harness.file("b.flac", recipe);
  engine.setNextTrack(next);
  ASSERT_TRUE(
      harness.waitUntil([&] { return harness.log.contains("📦 Loaded file into memory: b.flac"); }));
  engine.play(track);
  EXPECT_EQ(countOf(harness.log, "📦 Loaded file into memory: a.flac"), 2u);

  engine.setMemoryPlaybackLimitMB(1);
  engine.stop();
  StorageCache::shared().dropAll();
  engine.play(track);
  EXPECT_FALSE(engine.facts().isInMemory);
  EXPECT_EQ(engine.state(), PlaybackState::playing);
  EXPECT_TRUE(harness.log.contains("exceeds RAM limit 1 MB, playing from disk"));
}

}  // namespace
}  // namespace velorin::test
