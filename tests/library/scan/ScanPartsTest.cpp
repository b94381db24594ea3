// The parts of a scan, each alone.
#include <unistd.h>

#include "library/scan/FileWorkers.h"
#include "library/scan/ScanFixture.h"

namespace velorin::test {
namespace {

struct ScanParts : ScanFixture {};

TEST_F(ScanParts, FilesAreToldByTheirExtension) {
  struct {
    const char* name;
    std::optional<FileKind> kind;
  } const cases[] = {{"a.flac", FileKind::audio},      {"/x.d/A.FLAC", FileKind::audio},
                     {"a.Cue", FileKind::cueSheet},    {"a.m3u8", FileKind::playlist},
                     {"a.ogg", std::nullopt},          {".flac", std::nullopt},
                     {"/m/.flac", std::nullopt},       {"a.", std::nullopt},
                     {"flac", std::nullopt},           {"a.flac.txt", std::nullopt},
                     {"/x.flac/readme", std::nullopt}, {"a.flacs", std::nullopt}};
  for (const auto& each : cases) EXPECT_EQ(kindOfFile(each.name), each.kind) << each.name;
  EXPECT_TRUE(isReachable("/m/a/b.flac", {"/n", "/m/"}));
  for (const char* const path : {"/m", "/m/", "/mm/a", "/m/.h/a", "/m/@eaDir/a", "/m/a/.b"}) {
    EXPECT_FALSE(isReachable(path, {"/m"})) << path;
  }
  EXPECT_EQ(outermostFolders({"/m/a", "/m", "/n", "/m", "/m/.hidden"}),
            (std::vector<std::string>{"/m", "/n", "/m/.hidden"}));
}

TEST_F(ScanParts, AWalkFindsWhatAScanTakesUnderItsOwnName) {
  const std::vector<std::string> names = {
      "new\nline.flac", "100%_done\\.mp3", "not\xE9utf8.wav", fmt::format("{:n>251}.ape", ""),
      "deep/er/x.m4a",  "s.CUE",           "l.m3u8"};
  for (const std::string& name : names) write(fmt::format("m/{}", name));
  for (const char* const name :
       {"m/.hidden.flac", "m/.dir/a.flac", "m/#recycle/a.flac", "m/deep/@eaDir/a.flac",
        "m/System Volume Information/a.flac", "m/cover.jpg", "outside/far.flac"}) {
    write(name);
  }
  ASSERT_EQ(::mkfifo(path("m/pipe.flac").c_str(), 0600), 0);
  std::filesystem::create_directories(path("m/folder.flac"));
  // The folder itself, a folder that is there anyway, one elsewhere, a file, and nothing.
  for (const auto& [link, target] : {std::pair{"m/deep/loop", "m"},
                                     {"m/again", "m/deep"},
                                     {"m/far", "outside"},
                                     {"m/link.flac", "outside/far.flac"},
                                     {"m/gone", "not there"}}) {
    std::filesystem::create_symlink(path(target), path(link));
  }
  const auto found = FolderEnumeration(
                         settings, [] { return false; }, [](const auto&) {})
                         .enumerateFolder(path("m"), 10s);
  std::set<std::string> audio;
  found.audioFiles.forEach([&](std::string_view file, std::int64_t stamp) {
    audio.emplace(file.substr(path("m/").size()));
    EXPECT_NE(stamp, 0);
  });
  std::set<std::string> expected(names.begin(), names.begin() + 5);
  expected.insert({"far/far.flac", "link.flac"});
  EXPECT_EQ(audio, expected);
  EXPECT_EQ(found.cueFiles, std::vector{path("m/s.CUE")});
  EXPECT_EQ(found.m3uFiles, std::vector{path("m/l.m3u8")});
  ASSERT_EQ(found.unseen.size(), 1U);
  EXPECT_EQ(found.unseen[0].path, path("m/gone"));
  EXPECT_TRUE(found.isWhole());
  EXPECT_FALSE(FolderEnumeration(
                   settings, [] { return false; }, [](const auto&) {})
                   .enumerateFolder(path("nowhere"), 10s)
                   .isWhole());
}

TEST_F(ScanParts, AWalkThatHangsIsLeftBehindWithWhatItFound) {
  const auto gate = std::make_shared<Gate>();
  settings.walk = [gate](const std::string& root, FolderVisitor& visitor) {
    visitor.file({.path = root + "/a.flac", .kind = FileKind::audio, .stamp = 1});
    gate->wait();
    // Comes back when nobody waits any more.
    if (visitor.step()) visitor.file({.path = root + "/b.flac", .kind = FileKind::audio});
  };
  const FolderEnumeration patient(
      settings, [] { return false; }, [](const auto&) {});
  const auto stalled = patient.enumerateFolder("/m", 1s);
  EXPECT_TRUE(stalled.timedOut);
  EXPECT_EQ(stalled.audioFiles.size(), 1U);
  EXPECT_TRUE(log.contains("📂 m: 0 CUE + 1 audio — STALLED after "));
  const FolderEnumeration cancelled(
      settings, [] { return true; }, [](const auto&) {});
  const auto given = cancelled.enumerateFolder("/m", 10s);
  EXPECT_FALSE(given.timedOut);
  EXPECT_FALSE(given.isWhole());
  gate->open();
}

TEST_F(ScanParts, WorkersHoldTheWalkBackAndLetGoWhenCancelled) {
  Gate gate;
  std::atomic<int> added{0};
  FileWorkers workers("test", {.threads = 2, .inFlight = 5},
                      [&](const std::string&) { gate.wait(); }, {});
  std::thread walk([&] {
    while (workers.add("x")) ++added;
    // What is being worked on comes to its end in time.
    gate.open();
  });
  while (added < 5) std::this_thread::yield();
  EXPECT_FALSE(workers.finish([] { return true; }, 10s).isComplete);
  walk.join();
  EXPECT_EQ(added, 5);
  EXPECT_FALSE(workers.add("y"));
}

}  // namespace
}  // namespace velorin::test
