#include "foundation/Preferences.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <fstream>
#include <limits>

#include "foundation/AtomicFile.h"
#include "foundation/FileDescriptor.h"
#include "foundation/Log.h"
#include "support/Eventually.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using namespace std::string_literals;

class PreferencesTest : public testing::Test {
 protected:
  void put(std::string_view content) { std::ofstream(_file, std::ios::binary) << content; }
  std::set<std::string> filesInFolder() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(_folder.path())) {
      names.insert(entry.path().filename());
    }
    names.erase(".preferences.plist.lock");
    return names;
  }

  test::TemporaryFolder _folder;
  std::filesystem::path _file = _folder / "preferences.plist";
};

TEST_F(PreferencesTest, KeepsEveryKindOfValueAcrossRuns) {
  const PreferenceMap map{{"list", {PreferenceList{{std::int64_t{1}}, {"two"s}, {3.5}}}},
                          {"\xff key", {PreferenceBytes{0, 255}}}};
  _file = _folder / "made" / "on demand" / "preferences.plist";
  {
    Preferences store(_file);
    store.setBool("gaplessPlayback", true);
    store.setInt("limit", std::numeric_limits<std::int64_t>::min());
    store.setDouble("crossfeedDelay", 0.00027);
    store.setText("name", "a<&\r\n\0\xff é"s);
    store.setBytes("blob", {});
    store.setList("empty", {});
    store.setMap("map", map);
    store.setText("gone", "x");
    store.remove("gone");
  }  // the destructor writes
  const Preferences store(_file);
  EXPECT_EQ(store.getBool("gaplessPlayback"), true);
  EXPECT_EQ(store.getInt("limit"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(store.getDouble("crossfeedDelay"), 0.00027);
  EXPECT_EQ(store.getText("name"), "a<&\r\n\0\xff é"s);
  EXPECT_EQ(store.getBytes("blob"), PreferenceBytes{});
  EXPECT_EQ(store.getList("empty"), PreferenceList{});
  EXPECT_EQ(store.getMap("map"), map);
  EXPECT_FALSE(store.contains("gone"));
  struct stat status {};
  ASSERT_EQ(::stat(_file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(PreferencesTest, ReadsWhatAPersonWroteAndConvertsNumbersOnly) {
  put(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <!-- by hand -->
  <key>whole</key> <integer>3</integer>
  <key>real</key>  <real>-2.75</real>
  <key>huge</key>  <real>1e19</real>
  <key>odd</key>   <real>nan</real>
  <key>flag</key>  <true/>
  <key>text</key>  <string>42</string>
  <key>when</key>  <date>2024-05-01T12:00:00Z</date>
</dict>
</plist>)");
  const Preferences store(_file);
  EXPECT_EQ(store.getInt("whole"), 3);
  EXPECT_EQ(store.getDouble("whole"), 3.0);
  EXPECT_EQ(store.getInt("real"), -2);
  EXPECT_EQ(store.getInt("huge"), std::nullopt);
  EXPECT_EQ(store.getInt("odd"), std::nullopt);
  EXPECT_EQ(store.getBool("flag"), true);
  EXPECT_EQ(store.getInt("flag"), std::nullopt);
  EXPECT_EQ(store.getBool("whole"), std::nullopt);
  EXPECT_EQ(store.getInt("text"), std::nullopt);
  EXPECT_EQ(store.getText("when"), "2024-05-01T12:00:00Z");
}

TEST_F(PreferencesTest, DefaultsAreReadButNotWritten) {
  {
    Preferences store(_file);
    store.registerDefault("interval", {std::int64_t{3600}});
    EXPECT_EQ(store.getInt("interval"), 3600);
    EXPECT_TRUE(store.flush());
    EXPECT_FALSE(std::filesystem::exists(_file)) << "nothing was set";
    store.setInt("interval", 60);
    EXPECT_EQ(store.getInt("interval"), 60);
    store.remove("interval");
    EXPECT_EQ(store.getInt("interval"), 3600);
  }
  EXPECT_FALSE(Preferences(_file).contains("interval"));
}

TEST_F(PreferencesTest, ObserversHearChangesOfTheirKey) {
  auto store = std::make_unique<Preferences>();
  std::vector<std::int64_t> seen;
  Preferences::Observation observation;
  observation = store->observe("volume", [&] {
    seen.push_back(store->getInt("volume").value_or(-1));
    if (seen.back() == 1) store->setInt("volume", 2);  // a handler may change the store
    if (seen.back() == 3) observation.reset();
  });
  store->setInt("other", 5);
  store->setInt("volume", 1);
  store->setInt("volume", 2);  // no change
  store->remove("volume");
  store->setInt("volume", 3);
  store->setInt("volume", 4);  // nobody listens any more
  EXPECT_EQ(seen, (std::vector<std::int64_t>{1, 2, -1, 3}));
  // The first to hear of a change may end the observation of the second.
  Preferences::Observation second;
  observation = store->observe("volume", [&] { second.reset(); });
  second = store->observe("volume", [&] { seen.push_back(-2); });
  store->setInt("volume", 5);
  EXPECT_EQ(seen.back(), 3);
  store.reset();
  observation.reset();  // may outlive the store
}

TEST_F(PreferencesTest, ChangesAreWrittenInTheBackground) {
  Preferences store(_file);
  store.setText("key", "value");
  std::string failure;
  // The file appears by rename: once it is there it is whole.
  ASSERT_TRUE(test::eventually([&] { return std::filesystem::exists(_file); }));
  EXPECT_NE(readFile(_file, failure)->find("<string>value</string>"), std::string::npos);
  EXPECT_EQ(filesInFolder(), std::set<std::string>{"preferences.plist"});
}

TEST_F(PreferencesTest, ADamagedFileIsSetAside) {
  for (const std::string& content : {""s, "<plist><dict>"s, "\xff\xfe\x00 garbage"s,
                                     "<plist version=\"1.0\"><array></array></plist>"s}) {
    put(content);
    const log::Capture capture;
    {
      Preferences store(_file);
      EXPECT_TRUE(capture.contains("⚠️ Preferences"));
      EXPECT_TRUE(capture.contains("set aside as preferences.plist.damaged-"));
      store.setInt("fresh", 1);
    }
    EXPECT_EQ(Preferences(_file).getInt("fresh"), 1);
  }
  // All four are there still, also those of one second.
  auto names = filesInFolder();
  EXPECT_EQ(names.erase("preferences.plist"), 1U);
  EXPECT_EQ(names.size(), 4U);
  std::string failure;
  std::set<std::string> contents;
  for (const auto& name : names) {
    EXPECT_TRUE(name.starts_with("preferences.plist.damaged-2"));
    contents.insert(*readFile(_folder / name, failure));
  }
  EXPECT_EQ(contents.size(), 4U);
}

TEST_F(PreferencesTest, AFolderThatCannotBeWrittenLosesNothing) {
  // A file where the folder should be stops root as well.
  const auto inTheWay = _folder / "config";
  std::ofstream(inTheWay) << "x";
  const log::Capture capture;
  Preferences store(inTheWay / "preferences.plist");
  store.setInt("a", 1);
  EXPECT_FALSE(store.flush());
  EXPECT_FALSE(store.flush());
  EXPECT_EQ(store.getInt("a"), 1);
  const auto lines = capture.lines();
  EXPECT_EQ(std::ranges::count_if(lines, [](auto& line) { return line.starts_with("❌"); }), 1)
      << "one cause is told once";

  std::filesystem::remove(inTheWay);
  EXPECT_TRUE(store.flush());
  EXPECT_TRUE(capture.contains("ℹ️ Preferences are saved again"));
  EXPECT_EQ(Preferences(inTheWay / "preferences.plist").getInt("a"), 1);
}

TEST_F(PreferencesTest, AFullDiskLeavesTheOldFile) {
  Preferences store(_file);
  store.setText("key", "old");
  ASSERT_TRUE(store.flush());

  // The limit on file sizes makes write() stop halfway, as a full disk does.
  const log::Capture capture;
  const auto before = std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit small{4096, limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  store.setText("key", std::string(100'000, 'n'));
  EXPECT_FALSE(store.flush());
  ::setrlimit(RLIMIT_FSIZE, &limit);
  std::signal(SIGXFSZ, before);

  EXPECT_TRUE(capture.contains("❌ Preferences are not saved: cannot write"));
  EXPECT_EQ(Preferences(_file).getText("key"), "old");
  EXPECT_EQ(filesInFolder(), std::set<std::string>{"preferences.plist"});
  EXPECT_TRUE(store.flush());
  EXPECT_EQ(Preferences(_file).getText("key")->size(), 100'000U);
}

TEST_F(PreferencesTest, WhatIsNoFileStaysUntouched) {
  // A folder under the name of the file can be renamed, but a link elsewhere is followed.
  const auto real = _folder / "dotfiles.plist";
  {
    Preferences store(real);
    store.setInt("a", 1);
  }
  std::filesystem::create_symlink("dotfiles.plist", _file);
  {
    Preferences store(_file);
    EXPECT_EQ(store.getInt("a"), 1);
    store.setInt("a", 2);
  }
  EXPECT_TRUE(std::filesystem::is_symlink(_file));
  EXPECT_EQ(Preferences(real).getInt("a"), 2);
}

TEST_F(PreferencesTest, SharersKeepEachOthersChanges) {
  Preferences mine(_file);
  Preferences theirs(_file);
  mine.setInt("both", 1);
  mine.setInt("mine", 1);
  ASSERT_TRUE(mine.flush());
  std::vector<std::string> heard;
  std::vector<Preferences::Observation> observations;
  for (const std::string key : {"both", "mine", "theirs"}) {
    observations.push_back(theirs.observe(key, [&heard, key] { heard.push_back(key); }));
  }
  theirs.setInt("both", 2);
  theirs.setInt("theirs", 2);
  heard.clear();
  ASSERT_TRUE(theirs.flush());
  EXPECT_EQ(heard, std::vector<std::string>{"mine"});
  EXPECT_EQ(theirs.getInt("mine"), 1);
  mine.remove("mine");
  mine.setInt("late", 3);
  ASSERT_TRUE(mine.flush());
  EXPECT_EQ(mine.getInt("both"), 2) << "the last one wins";
  ASSERT_TRUE(theirs.flush());
  EXPECT_EQ(heard.back(), "mine");
  EXPECT_FALSE(theirs.contains("mine"));
  EXPECT_EQ(theirs.getInt("late"), 3);

  // A damaged file does not take what is in memory with it, nor does a lost one.
  const log::Capture capture;
  for (const bool lost : {false, true}) {
    if (lost) std::filesystem::remove(_file);
    if (!lost) put("\xff");
    EXPECT_TRUE(theirs.flush());
    EXPECT_EQ(theirs.getInt("theirs"), 2);
    theirs.setBool("again", lost);
    EXPECT_TRUE(theirs.flush());
    const Preferences back(_file);
    EXPECT_EQ(back.getBool("again"), lost);
    EXPECT_EQ(back.getInt("theirs"), 2);
  }
  EXPECT_TRUE(capture.contains("set aside as preferences.plist.damaged-"));
}

TEST_F(PreferencesTest, LargeValuesHaveFilesOfTheirOwn) {
  const auto asides = _folder / "preferences.plist.values";
  const auto asideFiles = [&] {
    std::set<std::filesystem::path> files;
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(asides, none)) {
      files.insert(entry.path());
    }
    return files;
  };
  PreferenceList list(5000);
  for (std::int64_t i = 0; i < 5000; ++i) list[static_cast<std::size_t>(i)].value = i;
  const PreferenceMap likeAReference{
      {"velorin:value in file", {"1B4E28BA-2FA1-41D2-883F-0016D3CCA427.plist"s}}};
  const PreferenceMap leadsOut{{"velorin:value in file", {"../preferences.plist"s}}};
  Preferences store(_file);
  store.setList("list", list);
  store.setMap("odd", likeAReference);
  store.setMap("hostile", leadsOut);
  store.setInt("small", 1);
  ASSERT_TRUE(store.flush());
  EXPECT_LT(std::filesystem::file_size(_file), 1000U);
  const auto files = asideFiles();
  EXPECT_EQ(files.size(), 2U);
  store.setInt("small", 2);
  ASSERT_TRUE(store.flush());
  EXPECT_EQ(asideFiles(), files) << "they are left alone";

  // Two that have not read it yet: one sees its file go.
  Preferences other(_file);
  const Preferences late(_file);
  EXPECT_EQ(other.getList("list"), list);
  EXPECT_EQ(other.getMap("odd"), likeAReference);
  EXPECT_EQ(other.getMap("hostile"), leadsOut);
  list.pop_back();
  other.setList("list", list);
  std::ofstream(asides / "left by a crash") << "x";
  ASSERT_TRUE(other.flush());
  EXPECT_EQ(asideFiles().size(), 2U);
  EXPECT_EQ(late.getList("list"), list);
  store.flush();
  EXPECT_EQ(store.getList("list"), list);

  const log::Capture capture;
  std::filesystem::remove_all(asides);
  const Preferences without(_file);
  EXPECT_EQ(without.getList("list"), std::nullopt);
  EXPECT_EQ(without.getInt("small"), 2);
  EXPECT_TRUE(capture.contains("⚠️ Preference list is lost with its file"));
  store.setInt("small", 3);
  ASSERT_TRUE(store.flush()) << "who has it in memory brings it back";
  EXPECT_EQ(Preferences(_file).getList("list"), list);
  store.remove("list");
  store.remove("odd");
  ASSERT_TRUE(store.flush());
  EXPECT_FALSE(std::filesystem::exists(asides));
}

TEST_F(PreferencesTest, ALockThatIsNotGivenBackHoldsNobodyUp) {
  Preferences store(_file);
  const FileDescriptor held(
      ::open((_folder / ".preferences.plist.lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
  ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
  const log::Capture capture;
  store.setInt("a", 1);
  EXPECT_TRUE(store.flush());
  EXPECT_TRUE(capture.contains("are written without their lock: another program holds it"));
  EXPECT_EQ(Preferences(_file).getInt("a"), 1);
}

TEST_F(PreferencesTest, TooDeepAValueIsRefused) {
  PreferenceValue value{true};
  for (int i = 0; i < 200; ++i) value = {PreferenceList{value}};
  const log::Capture capture;
  Preferences store(_file);
  store.setList("deep", std::get<PreferenceList>(value.value));
  EXPECT_FALSE(store.contains("deep"));
  EXPECT_TRUE(capture.contains("nested too deep"));
}

// Meant for the thread sanitizer.
TEST_F(PreferencesTest, ThreadsReadWriteObserveAndFlushAtOnce) {
  Preferences store(_file);
  std::atomic<int> heard{0};
  const auto observation = store.observe("n", [&] { ++heard; });
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 100; ++i) {
        store.setInt("n", t * 1000 + i);
        store.setText("key" + std::to_string(t), std::to_string(i));
        (void)store.getInt("n");
        if (i % 25 == 0) store.flush();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(store.flush());
  EXPECT_EQ(heard.load(), 300);
  const Preferences back(_file);
  for (int t = 0; t < 3; ++t) EXPECT_EQ(back.getText("key" + std::to_string(t)), "99");
}

}  // namespace
}  // namespace velorin
