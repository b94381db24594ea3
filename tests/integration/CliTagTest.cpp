// `velorin tag` on files in a library and outside of one.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "Program.h"
#include "library/LibraryFile.h"
#include "library/queries/LibraryImport.h"
#include "support/FlacFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

using nlohmann::json;

class CliTag : public testing::Test {
 protected:
  CliTag() {
    ::setenv("VELORIN_HOME", _home.path().c_str(), 1);
    FlacFixture::make({.frames = 1000}).write(_home / "a.flac");
  }
  ~CliTag() override { ::unsetenv("VELORIN_HOME"); }

  std::string path() const { return _home / "a.flac"; }
  std::string bytes() const {
    std::ifstream file(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static json jsonOf(const std::vector<std::string>& arguments) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    return json::parse(outcome.out, nullptr, false);
  }
  json info() const { return jsonOf({"info", path(), "--json"})[0]; }

  const TemporaryFolder _home;
};

TEST_F(CliTag, WritesAFileOutsideALibrary) {
  const Outcome outcome =
      run({"tag", path(), "--set", "title=Été = 1", "--set", "track=7", "--set", "year=1999"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_NE(outcome.out.find("a.flac: written\n"), std::string::npos) << outcome.out;
  EXPECT_FALSE(std::filesystem::exists(defaultLibraryFile()));
  EXPECT_EQ(info()["title"], "Été = 1");
  EXPECT_EQ(info()["trackNumber"], 7);
  EXPECT_EQ(run({"tag", path(), "--clear", "track", "--clear", "title"}).exitCode, 0);
  EXPECT_EQ(info()["title"], "a");
  EXPECT_TRUE(info()["trackNumber"].is_null());
  EXPECT_EQ(info()["year"], 1999);
}

TEST_F(CliTag, MovesATrackOfTheLibraryWithItsFile) {
  {
    ScannedItem item{};
    item.artistName = "Old Artist";
    item.albumTitle = "Album";
    item.track.title = "Old";
    item.track.filePath = path();
    const DatabaseHandle database(openLibraryFile(defaultLibraryFile()));
    LibraryImport(database).insertBatch({item});
  }
  const json written =
      jsonOf({"tag", path(), "--set", "title=Quartz", "--set", "artist=Nova", "--json"})[0];
  EXPECT_EQ(written["success"], true);
  EXPECT_EQ(written["inLibrary"], true);
  EXPECT_TRUE(written["error"].is_null());
  for (const char* text : {"quartz", "nova"}) {
    const json found = jsonOf({"search", text, "--json"})["tracks"];
    ASSERT_EQ(found.size(), 1U) << text;
    EXPECT_EQ(found[0]["track"]["id"], written["trackId"]);
    EXPECT_EQ(found[0]["track"]["title"], "Quartz");
    EXPECT_EQ(found[0]["artist"]["name"], "Nova");
    EXPECT_EQ(found[0]["album"]["title"], "Album");
    EXPECT_EQ(found[0]["album"]["artistId"], found[0]["artist"]["id"]);
  }
  const json old = jsonOf({"search", "old", "--json"});
  EXPECT_TRUE(old["tracks"].empty() && old["artists"].empty()) << old;
  EXPECT_EQ(info()["artist"], "Nova");
}

TEST_F(CliTag, LeavesWhatItCannotWrite) {
  const std::string before = bytes();
  for (const auto& [arguments, message] :
       std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"tag", path(), "--set", "mood=blue"}, "there is no tag \"mood\""},
           {{"tag", path(), "--set", "track=x"}, "track is a number"},
           {{"tag", path(), "--set", "title=a", "--clear", "title"}, "title is told twice"},
           {{"tag", path()}, ""}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, 2) << message;
    EXPECT_NE(outcome.err.find(message), std::string::npos) << outcome.err;
  }
  std::ofstream(_home / "b.txt") << "no music";
  const Outcome mixed =
      run({"tag", _home / "b.txt", _home / "gone.flac", path(), "--set", "title=x", "--json"});
  EXPECT_EQ(mixed.exitCode, 1);
  const json results = json::parse(mixed.out, nullptr, false);
  ASSERT_EQ(results.size(), 3U) << mixed.out;
  EXPECT_EQ(results[0]["success"], false);
  EXPECT_EQ(results[1]["success"], false);
  EXPECT_FALSE(results[1]["error"].get<std::string>().empty());
  EXPECT_EQ(results[2]["success"], true) << "one that fails does not keep the others";

  // A disk without room for the copy: the file stays as it is, and nothing lies beside it.
  const std::string whole = bytes();
  EXPECT_NE(whole, before);
  const Outcome full = run({"tag", path(), "--set", "title=y"}, 100);
  EXPECT_EQ(full.exitCode, 1);
  EXPECT_EQ(std::count(full.err.begin(), full.err.end(), '\n'), 1) << full.err;
  EXPECT_EQ(bytes(), whole);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(_home.path()), {}), 2);
}

TEST_F(CliTag, InfoTellsOfOddFiles) {
  const std::string mono = _home / "m\n.m4a";
  const std::string caf = _home / "c.caf";
  for (const std::string& file : {mono, caf}) {
    runTool({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=duration=1", "-metadata",
             "title=T", "-c:a", file == caf ? "alac" : "aac", file});
  }
  const json both = jsonOf({"info", mono, caf, "--json"});
  ASSERT_EQ(both.size(), 2U);
  EXPECT_EQ(both[0]["path"], mono);
  EXPECT_EQ(both[0]["channels"], 1);
  EXPECT_EQ(both[0]["title"], "T");
  EXPECT_EQ(both[1]["format"], "CAF");
  EXPECT_EQ(both[1]["title"], "T");
  EXPECT_EQ(both[1]["bitsPerSample"], 16);
}

}  // namespace
}  // namespace velorin::test
