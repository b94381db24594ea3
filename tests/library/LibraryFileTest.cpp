// Opening the library's file: made where it is missing, set aside only when it is the file that is
// to blame.

#include <gtest/gtest.h>

#include <fstream>
#include <future>

#include "foundation/Log.h"
#include "library/LibraryFile.h"
#include "library/schema/Migrator.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;
using sqlite::Connection;
using sqlite::Reader;
using sqlite::Writer;

void write(const fs::path& file, std::string_view text) {
  std::ofstream(file, std::ios::binary) << text;
}

std::string read(const fs::path& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

/// A library with one artist, as the step of that name left it.
void makeLibrary(const fs::path& file, std::string_view last = {}) {
  ConnectionQueue queue(file);
  queue.withConnection([&](Connection& connection) {
    schema::migrate(connection, last);
    connection.executeScript("INSERT INTO artists (name) VALUES ('A')");
  });
}

int artistsOf(ConnectionQueue& queue) {
  return queue.read(
      [](Reader& reader) { return *reader.first<int>("SELECT COUNT(*) FROM artists"); });
}

std::vector<fs::path> setAside(const fs::path& folder) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename();
    if (name.starts_with("library.sqlite.corrupt-")) files.push_back(entry.path());
  }
  return files;
}

TEST(LibraryFile, AFirstRunMakesTheFolderAndTheFile) {
  const test::TemporaryFolder folder;
  const log::Capture capture;
  const auto file = folder / "deep" / "Velorin" / "library.sqlite";
  const auto queue = openLibraryFile(file);
  EXPECT_EQ(artistsOf(*queue), 0);
  EXPECT_EQ(queue->read([](Reader& reader) {
    return reader.first<std::size_t>("SELECT COUNT(*) FROM grdb_migrations");
  }),
            schema::migrations().size());
  EXPECT_TRUE(fs::exists(file.native() + "-wal"));
  EXPECT_EQ(capture.lines().back(), "📦 Database opened at " + file.native());

  write(folder / "plain", "");
  try {
    openLibraryFile(folder / "plain" / "library.sqlite");
    ADD_FAILURE() << "it opened";
  } catch (const VelorinDatabaseError& error) {
    EXPECT_TRUE(error.message.starts_with("Failed to create database directory: "));
  }
}

TEST(LibraryFile, WhatIsNoLibraryIsSetAside) {
  struct Case {
    const char* name;
    void (*spoil)(const fs::path& file);
  };
  for (const Case& each : {
           Case{"not a database",
                [](const fs::path& file) { write(file, std::string(9000, 'x')); }},
           Case{"cut off",
                [](const fs::path& file) {
                  makeLibrary(file);
                  fs::resize_file(file, 5000);
                }},
           Case{"overwritten in the middle",
                [](const fs::path& file) {
                  makeLibrary(file);
                  std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
                  stream.seekp(100) << std::string(3000, '\xee');
                }},
           Case{"a migration fails",
                [](const fs::path& file) {
                  makeLibrary(file, "v4_history");
                  ConnectionQueue(file).withConnection([](Connection& connection) {
                    connection.executeScript("CREATE TABLE playlists (mine)");
                  });
                }},
       }) {
    SCOPED_TRACE(each.name);
    const test::TemporaryFolder folder;
    const auto file = folder / "library.sqlite";
    each.spoil(file);
    write(folder / "library.sqlite-shm", "stale");
    const std::string before = read(file);
    const log::Capture capture;
    const auto queue = openLibraryFile(file);
    EXPECT_EQ(artistsOf(*queue), 0);
    const auto aside = setAside(folder.path());
    ASSERT_EQ(aside.size(), 1U);
    const std::string seconds = aside[0].filename().native().substr(23);
    EXPECT_LE(std::abs(std::stoll(seconds) - std::time(nullptr)), 60);
    EXPECT_EQ(read(aside[0]), before);
    const std::string line = capture.lines().back();
    EXPECT_TRUE(line.starts_with("⚠️ Database open failed (")) << line;
    EXPECT_TRUE(line.ends_with("); recovered to fresh DB. Old file at " + aside[0].native()))
        << line;
    queue->write([](Writer& writer) { writer.run("INSERT INTO artists (name) VALUES ('B')"); });
  }
}

TEST(LibraryFile, FirstRunsAtTheSameTimeEndAtOneLibrary) {
  const log::Capture capture;
  for (int round = 0; round < 5; ++round) {
    SCOPED_TRACE(round);
    const test::TemporaryFolder folder;
    const auto file = folder / "library.sqlite";
    std::vector<std::future<std::string>> runs;
    for (int run = 0; run < 4; ++run) {
      runs.push_back(std::async(std::launch::async, [&, run] {
        try {
          const auto queue = openLibraryFile(file);
          return std::to_string(queue->write([&](Writer& writer) {
            return writer.run("INSERT INTO artists (name) VALUES (?)", std::to_string(run));
          }));
        } catch (const VelorinDatabaseError& error) {
          return error.message;
        }
      }));
    }
    for (auto& run : runs) EXPECT_EQ(run.get(), "1");
    EXPECT_TRUE(setAside(folder.path()).empty());
    EXPECT_EQ(artistsOf(*openLibraryFile(file)), 4);
  }
}

TEST(LibraryFile, AFileThatAnotherProgramHoldsStaysWhereItIs) {
  const test::TemporaryFolder folder;
  const auto file = folder / "library.sqlite";
  makeLibrary(file, "v4_history");
  {
    Connection other(file);
    other.executeScript("BEGIN IMMEDIATE");
    try {
      openLibraryFile(file);
      ADD_FAILURE() << "it opened";
    } catch (const VelorinDatabaseError& error) {
      EXPECT_NE(error.message.find("another program is writing to the library"), std::string::npos)
          << error.message;
    }
    EXPECT_TRUE(setAside(folder.path()).empty());
  }
  EXPECT_EQ(artistsOf(*openLibraryFile(file)), 1);
}

}  // namespace
}  // namespace velorin
