// `velorin playlist` on a library of its own.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "Program.h"
#include "library/LibraryFile.h"
#include "library/queries/LibraryImport.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

using nlohmann::json;

class CliPlaylist : public testing::Test {
 protected:
  CliPlaylist() { ::setenv("VELORIN_HOME", _home.path().c_str(), 1); }
  ~CliPlaylist() override { ::unsetenv("VELORIN_HOME"); }

  void makeLibrary() const {
    const DatabaseHandle database(openLibraryFile(defaultLibraryFile()));
    for (const char* title : {"one", "two"}) {
      ScannedItem item{.artistName = title,
                       .albumTitle = "Album",
                       .year = {},
                       .albumGenre = {},
                       .track = {},
                       .artworkPath = {}};
      item.track.title = title;
      item.track.filePath = std::string("/m/") + title + ".mp3";
      item.track.duration = 60;
      LibraryImport(database).insertBatch({item});
    }
  }
  std::string write(const char* name, const std::string& text) const {
    std::ofstream(_home / name) << text;
    return _home / name;
  }
  static json jsonOf(const std::vector<std::string>& arguments) {
    return json::parse(run(arguments).out, nullptr, false);
  }

  const TemporaryFolder _home;
};

TEST_F(CliPlaylist, ComesFromAFileAndGoesToOne) {
  EXPECT_EQ(run({"playlist", "import", write("x.m3u", "/m/one.mp3")}).exitCode, 1);
  EXPECT_FALSE(std::filesystem::exists(defaultLibraryFile()));
  makeLibrary();
  const auto list = write("Mix.m3u8", "#EXTM3U\n/x/TWO.mp3\n/gone\x1b.mp3\n/m/one.mp3\n");
  const auto imported = run({"playlist", "import", list, "none.m3u"});
  EXPECT_EQ(imported.exitCode, 1);
  EXPECT_NE(imported.out.find("2 of 3 found: playlist \"Mix\" with 2 tracks\n"
                              "  not in the library: /gone\\x1b.mp3\n"),
            std::string::npos)
      << imported.out;
  EXPECT_EQ(imported.err, "velorin: none.m3u: No such file or directory\n");

  const auto rules =
      write("r.json",
            R"({"matchMode":"all","sortAscending":true,"rules":[{"field":"artist","op":"is",)"
            R"("id":"1B4E28BA-2FA1-41D2-883F-0016D3CCA427","value":{"string":{"_0":"ONE"}}}]})");
  EXPECT_EQ(run({"playlist", "create", "Smart", "--rules", rules}).exitCode, 0);
  EXPECT_EQ(run({"playlist", "create", "Other", "--rules", list}).exitCode, 1);
  EXPECT_EQ(jsonOf({"playlist", "list", "--json"})[1]["trackCount"], 1);
  EXPECT_EQ(jsonOf({"playlist", "show", "smart", "--json"})["tracks"][0]["track"]["title"], "one");
  EXPECT_NE(run({"playlist", "show", "mix"}).out.find("Mix: 2 tracks, 2:00"), std::string::npos);

  const std::string text =
      "#EXTM3U\n#EXTINF:60,two - two\n/m/two.mp3\n#EXTINF:60,one - one\n/m/one.mp3\n";
  EXPECT_EQ(run({"playlist", "export", "Mix"}).out, text);
  EXPECT_EQ(run({"playlist", "export", "Mix", "-o", _home / "out.m3u8"}).exitCode, 0);
  std::ifstream written(_home / "out.m3u8");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(written), {}), text);

  EXPECT_EQ(run({"playlist", "delete", "Mix"}).exitCode, 0);
  const auto gone = run({"playlist", "show", "Mix"});
  EXPECT_EQ(gone.exitCode, 1);
  EXPECT_EQ(gone.err, "velorin: there is no playlist \"Mix\": see 'velorin playlist list'\n");
  EXPECT_EQ(run({"playlist"}).exitCode, 2);
}

}  // namespace
}  // namespace velorin::test
