// The commands that look at the library, and leave it as it is.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "Program.h"
#include "library/LibraryFile.h"
#include "library/queries/LibraryImport.h"
#include "library/queries/LibrarySearch.h"
#include "library/schema/Migrator.h"
#include "support/SyntheticLibrary.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

/// $VELORIN_HOME of its own.
class CliLibrary : public testing::Test {
 protected:
  CliLibrary() { ::setenv("VELORIN_HOME", _home.path().c_str(), 1); }
  ~CliLibrary() override { ::unsetenv("VELORIN_HOME"); }

  fs::path file() const { return defaultLibraryFile(); }

  void makeLibrary(std::size_t tracks) {
    _queue = openLibraryFile(file());
    _database.setDbQueue(_queue);
    SyntheticLibrary({.tracks = tracks}).fill(_database);
  }
  void add(const std::string& title, const std::string& path) {
    ScannedItem item;
    item.artistName = "Odd Artist";
    item.albumTitle = "Odd Album";
    item.track.title = title;
    item.track.filePath = path;
    LibraryImport(_database).insertBatch({item});
  }

  /// Every file and folder of the home folder and what it holds.
  std::map<fs::path, std::string> everything() const {
    std::map<fs::path, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(_home.path())) {
      std::ifstream in;
      if (entry.is_regular_file()) in.open(entry.path(), std::ios::binary);
      files[entry.path()] = {std::istreambuf_iterator<char>(in), {}};
    }
    return files;
  }

  const TemporaryFolder _home;
  std::shared_ptr<ConnectionQueue> _queue;
  DatabaseHandle _database;
};

bool isOneLine(const std::string& text) {
  return !text.empty() && text.find('\n') == text.size() - 1;
}

TEST_F(CliLibrary, WithoutAReadableLibraryEndsWith1AndMakesNothing) {
  struct Case {
    const char* name;
    std::function<void()> prepare;
    const char* message;
  };
  const std::vector<Case> cases = {
      {"missing", [] {}, "no library yet"},
      {"broken",
       [&] {
         fs::create_directories(file().parent_path());
         std::ofstream(file()) << std::string(10'000, 'x');
       },
       "cannot be read"},
      {"of an earlier version",
       [&] {
         fs::remove(file());
         ConnectionQueue(file()).withConnection([](sqlite::Connection& connection) {
           schema::migrate(connection, "v9_history_extended");
         });
       },
       "earlier version"},
      {"a folder",
       [&] {
         fs::remove(file());
         fs::create_directory(file());
       },
       "cannot be read"},
  };
  const std::vector<std::vector<std::string>> commands = {
      {"search", "love"}, {"search", "love", "--json"}, {"library", "list"}};
  for (const Case& each : cases) {
    each.prepare();
    const auto before = everything();
    for (const auto& command : commands) {
      const Outcome outcome = run(command);
      EXPECT_EQ(outcome.exitCode, 1) << each.name;
      EXPECT_EQ(outcome.out, "") << each.name;
      EXPECT_TRUE(isOneLine(outcome.err)) << each.name << outcome.err;
      EXPECT_NE(outcome.err.find(each.message), std::string::npos) << each.name << outcome.err;
    }
    EXPECT_EQ(everything(), before) << each.name;
  }
}

TEST_F(CliLibrary, SearchPrintsTheTracksInTheirOrderPageByPage) {
  makeLibrary(2000);
  const auto expected = LibrarySearch(_database).searchTracks("the");
  ASSERT_GT(expected.size(), 25U);
  std::vector<std::int64_t> ids;
  bool hasMore = true;
  while (hasMore) {
    const Outcome outcome =
        run({"search", "the", "--json", "--limit", "20", "--offset", std::to_string(ids.size())});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const json page = json::parse(outcome.out);
    EXPECT_EQ(page.at("albums").empty(), !ids.empty()) << "names come with the first page";
    for (const json& info : page.at("tracks")) {
      const TrackInfo& same = expected.at(ids.size());
      EXPECT_EQ(info.at("track").at("title"), same.track.title);
      EXPECT_EQ(info.at("track").at("duration"), same.track.duration);
      EXPECT_EQ(info.at("track").at("bitDepth").is_null(), !same.track.bitDepth);
      EXPECT_EQ(info.at("album").at("title"), same.album.title);
      EXPECT_EQ(info.at("artist").at("name"), same.artist.name);
      ids.push_back(info.at("track").at("id"));
    }
    hasMore = page.at("hasMore");
    ASSERT_LE(ids.size(), expected.size());
  }
  ASSERT_EQ(ids.size(), expected.size());
  for (std::size_t i = 0; i < ids.size(); ++i) EXPECT_EQ(ids[i], expected[i].track.id);

  const Outcome text = run({"search", "the", "--limit", "1"});
  EXPECT_NE(text.out.find(expected[0].track.filePath), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("--offset 1\n"), std::string::npos) << text.out;
}

TEST_F(CliLibrary, OddTextsAndNamesDoNoHarm) {
  makeLibrary(10);
  add("escape\x1b[31m\nquartz", "/m/\x1b]0;quartz\x07.flac");
  add("quartz \xE2\x80\xAE"
      "esrever",
      "/m/not utf-8 \xff.flac");
  add("水晶 quartz", "/m/水晶.flac");
  struct Case {
    std::vector<std::string> arguments;
    std::string found;  ///< in the output; "": nothing is found
  };
  for (const Case& each : {Case{{"quartz"}, "水晶 quartz"},
                           {{"QUARTZ", "odd"}, "Odd Album"},
                           {{"quartz", "--json"}, "水晶 quartz"},
                           {{"水晶"}, "/m/水晶.flac"},
                           {{"odd art"}, "Artists\n  Odd Artist\n"},
                           {{"--", "-quartz"}, "水晶 quartz"},
                           {{"\""}, ""},
                           {{"%"}, ""},
                           {{" "}, ""},
                           {{""}, ""},
                           {{"quartz AND NOT"}, ""},
                           {{"\xff"}, ""},
                           {{"quartz", "--offset", "3"}, ""}}) {
    std::vector<std::string> command = {"search"};
    command.insert(command.end(), each.arguments.begin(), each.arguments.end());
    const Outcome outcome = run(command);
    const std::string shown = testing::PrintToString(each.arguments) + outcome.out + outcome.err;
    EXPECT_EQ(outcome.exitCode, 0) << shown;
    EXPECT_EQ(outcome.out.find('\x1b'), std::string::npos) << shown;
    if (each.arguments.back() != "--json") {
      EXPECT_EQ(outcome.out.find("\xE2\x80\xAE"), std::string::npos) << shown;
    }
    EXPECT_NE(outcome.out.find(each.found), std::string::npos) << shown;
    EXPECT_EQ(outcome.out.empty(), each.found.empty()) << shown;
    EXPECT_EQ(isOneLine(outcome.err), each.found.empty()) << shown;
  }
}

TEST_F(CliLibrary, LooksWhileAnotherProcessWrites) {
  makeLibrary(100);
  add("obsidian", "/m/obsidian.flac");
  _queue->write([&](sqlite::Writer& writer) {
    writer.run("UPDATE tracks SET title = 'marble' WHERE title = 'obsidian'");
    const Outcome search = run({"search", "obsidian"});
    EXPECT_EQ(search.exitCode, 0) << search.err;
    EXPECT_NE(search.out.find("obsidian"), std::string::npos) << "not yet committed";
    EXPECT_EQ(run({"library", "list"}).exitCode, 0);
  });
}

TEST_F(CliLibrary, ListTellsWhatIsThere) {
  makeLibrary(500);
  const fs::path present = _home / "music";
  fs::create_directory(present);
  _queue->write([&](sqlite::Writer& writer) {
    writer.run("INSERT INTO musicFolders (path, lastScanned) VALUES (?, NULL)", present.native());
  });
  const json list = json::parse(run({"library", "list", "--json"}).out);
  EXPECT_EQ(list.at("file"), file().native());
  EXPECT_EQ(list.at("trackCount"), 500);
  std::int64_t inFolders = 0;
  for (const json& folder : list.at("folders")) {
    inFolders += folder.at("trackCount").get<std::int64_t>();
    EXPECT_EQ(folder.at("available"), folder.at("path") == present.native());
  }
  EXPECT_EQ(inFolders, 500);
  const double seconds = _queue->read([](sqlite::Reader& reader) {
    return *reader.first<double>("SELECT SUM(duration) FROM tracks");
  });
  EXPECT_NEAR(list.at("totalDuration"), seconds, 1);

  const std::string text = run({"library", "list"}).out;
  for (const char* part :
       {"500 tracks", "needs a full scan ", " not there now\n", "never scanned\n", " scanned 20"}) {
    EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
  }
  _queue->write([](sqlite::Writer& writer) { writer.run("DELETE FROM musicFolders"); });
  EXPECT_NE(run({"library", "list"}).out.find("no folder has been added yet"), std::string::npos);
}

TEST_F(CliLibrary, SearchFitsTheTerminal) {
  makeLibrary(2000);
  for (const int columns : {60, 160}) {
    TerminalRun program({"search", "the", "--limit", "30"}, columns);
    EXPECT_EQ(program.waitForExit(), 0);
    std::istringstream lines(program.screen());
    for (std::string line; std::getline(lines, line);) {
      // No character of this library takes more columns than bytes.
      const auto continued = std::ranges::count_if(
          line, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; });
      EXPECT_LE(static_cast<long>(line.size()) - continued, columns) << line;
    }
  }
}

}  // namespace
}  // namespace velorin::test
