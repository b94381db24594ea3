// A disk that is full, and files and folders that cannot be written to: what was there stays, what
// can be done is done, and the error says what to do.

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iostream>

#include "foundation/Log.h"
#include "library/LibraryFile.h"
#include "library/LibrarySteps.h"
#include "library/schema/Migrator.h"
#include "support/MountNamespace.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;
using sqlite::Connection;
using sqlite::Reader;
using sqlite::Writer;
using test::LibrarySteps;

constexpr const char* kFull = "the disk that holds the library is full";
constexpr const char* kReadOnly = "the library cannot be written to";

constexpr int kNotHere = 77;  ///< how a process says that this machine does not let it

/// Runs the body in a process of its own, which may change what it sees and what it may do.
void inOwnProcess(const std::function<void()>& body) {
  const auto runAndExit = [&] {
    ::testing::TestPartResultArray results;
    {
      using Reporter = ::testing::ScopedFakeTestPartResultReporter;
      const Reporter reporter(Reporter::INTERCEPT_ALL_THREADS, &results);
      body();
    }
    for (int i = 0; i < results.size(); ++i) std::cerr << results.GetTestPartResult(i) << "\n";
    std::exit(results.size() == 0 ? 0 : 1);
  };
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  int status = 0;
  EXPECT_EXIT(
      runAndExit(),
      [&](int ended) {
        status = ended;
        return WIFEXITED(ended) && (WEXITSTATUS(ended) == 0 || WEXITSTATUS(ended) == kNotHere);
      },
      "");
  if (WEXITSTATUS(status) == kNotHere) GTEST_SKIP() << "no leave to mount a small disk";
}

/// On a file system of four megabytes.
void onSmallDisk(const std::function<void(const fs::path& disk)>& body) {
  inOwnProcess([&] {
    test::MountNamespace().SetUp();
    if (!test::MountNamespace::mayMount()) ::_exit(kNotHere);
    const test::TemporaryFolder folder;
    ASSERT_EQ(::mount("tmpfs", folder.path().c_str(), "tmpfs", 0, "size=4m"), 0);
    body(folder.path());
    ::umount2(folder.path().c_str(), MNT_DETACH);
  });
}

/// Takes all room on a disk but so many bytes.
void fill(const fs::path& disk, std::uintmax_t left) {
  fs::remove(disk / "ballast");
  const auto room = fs::space(disk).available;
  std::ofstream ballast(disk / "ballast", std::ios::binary);
  ballast << std::string(room > left ? room - left : 0, 'x');
}

template <class Work>
std::string errorOf(Work&& work) {
  try {
    work();
  } catch (const VelorinDatabaseError& error) {
    return error.message;
  }
  return "no error";
}

void expectSound(Connection& connection) {
  Reader reader(connection);
  EXPECT_EQ(reader.first<std::string>("PRAGMA integrity_check"), "ok");
  EXPECT_FALSE(reader.first<std::string>("PRAGMA foreign_key_check"));
  EXPECT_EQ(reader.column<std::int64_t>("SELECT id FROM tracks ORDER BY id"),
            reader.column<std::int64_t>("SELECT rowid FROM tracks_fts ORDER BY rowid"));
}

std::size_t setAside(const fs::path& folder) {
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    count += entry.path().native().find(".corrupt-") != std::string::npos;
  }
  return count;
}

TEST(DiskTrouble, AFullDiskLosesNothing) {
  onSmallDisk([](const fs::path& disk) {
    const auto file = disk / "library.sqlite";
    auto queue = openLibraryFile(file);
    const DatabaseHandle database(queue);
    LibrarySteps steps(database);
    steps.prepare();
    std::int64_t step = 0;
    for (const std::uintmax_t left : {0, 4096, 20'000, 60'000, 100'000}) {
      SCOPED_TRACE(left);
      queue->withConnection(
          [](Connection& c) { c.executeScript("PRAGMA wal_checkpoint(TRUNCATE)"); });
      fill(disk, left);
      const std::string before = steps.stateNow();
      std::string error = "no error";
      std::int64_t tried = step;
      while (error == "no error" && tried < step + 40) error = errorOf([&] { steps.run(tried++); });
      EXPECT_NE(error.find(kFull), std::string::npos) << error;
      EXPECT_EQ(steps.stateNow(), LibrarySteps::stateAfter(tried - 1));
      queue->withConnection(expectSound);
      fs::remove(disk / "ballast");
      step = tried - 1;
      EXPECT_NO_THROW(steps.run(step++));
      EXPECT_EQ(steps.stateNow(), LibrarySteps::stateAfter(step));
      queue->withConnection(expectSound);
    }
  });
}

TEST(DiskTrouble, AFullDiskStopsAMigrationAtAStep) {
  onSmallDisk([](const fs::path& disk) {
    const auto file = disk / "library.sqlite";
    {
      ConnectionQueue queue(file);
      queue.withConnection([](Connection& connection) {
        schema::migrate(connection, "v7_audio_analysis");
        connection.executeScript(R"(
INSERT INTO artists (id, name) VALUES (1, 'A'), (2, 'a');
WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000)
INSERT INTO albums (title, artistId) SELECT i, 1 FROM n;
INSERT INTO tracks (title, duration, filePath, albumId, artistId)
SELECT title, 1, '/music/' || title, id, 2 FROM albums;
)");
      });
    }
    for (const std::uintmax_t left : {0, 40'000, 120'000, 300'000}) {
      SCOPED_TRACE(left);
      fill(disk, left);
      const std::string error = errorOf([&] { openLibraryFile(file); });
      EXPECT_NE(error.find(kFull), std::string::npos) << error;
      EXPECT_EQ(setAside(disk), 0U);
      fs::remove(disk / "ballast");
      ConnectionQueue queue(file);
      EXPECT_EQ(queue.read([](Reader& reader) {
        return reader.first<int>("SELECT COUNT(*) FROM tracks");
      }),
                5000);
      EXPECT_EQ(queue.read([](Reader& reader) {
        return reader.first<std::string>("PRAGMA integrity_check");
      }),
                "ok");
    }
    const auto queue = openLibraryFile(file);
    queue->withConnection(expectSound);
  });
}

/// A library with a few tracks, closed.
void makeLibrary(const fs::path& file) {
  const DatabaseHandle database(openLibraryFile(file));
  LibrarySteps steps(database);
  steps.prepare();
  steps.run(0);
}

void expectReadOnly(const fs::path& file) {
  const std::string expected = LibrarySteps::stateAfter(1);
  std::shared_ptr<ConnectionQueue> queue;
  EXPECT_EQ(errorOf([&] { queue = openLibraryFile(file); }), "no error");
  if (!queue) return;
  const DatabaseHandle database(queue);
  LibrarySteps steps(database);
  EXPECT_EQ(steps.stateNow(), expected);
  const std::string error = errorOf([&] { steps.run(1); });
  EXPECT_NE(error.find(kReadOnly), std::string::npos) << error;
  EXPECT_EQ(steps.stateNow(), expected);
  EXPECT_EQ(setAside(file.parent_path()), 0U);
}

TEST(DiskTrouble, AReadOnlyDiskCanBeRead) {
  onSmallDisk([](const fs::path& disk) {
    makeLibrary(disk / "library.sqlite");
    fs::create_directory(disk / "copy");
    Connection(disk / "library.sqlite")
        .executeScript("VACUUM INTO '" + (disk / "copy" / "library.sqlite").native() + "'");
    ASSERT_EQ(::mount("none", disk.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    expectReadOnly(disk / "library.sqlite");
    expectReadOnly(disk / "copy" / "library.sqlite");  // without a write-ahead log
  });
}

TEST(DiskTrouble, WhatPermissionsForbidIsSaid) {
  inOwnProcess([] {
    constexpr uid_t kNobody = 65534;
    if (::getuid() == 0) {
      ASSERT_EQ(::setresuid(kNobody, kNobody, kNobody), 0);
    }
    const test::TemporaryFolder temporary;
    const auto folder = temporary / "odd ?%41#ü";
    fs::create_directory(folder);
    const auto file = folder / "library.sqlite";
    makeLibrary(file);
    struct Case {
      mode_t file;
      mode_t folder;
    };
    for (const Case& each : {Case{0444, 0755}, Case{0644, 0555}, Case{0444, 0555}}) {
      SCOPED_TRACE(std::to_string(each.file) + " in " + std::to_string(each.folder));
      ::chmod(file.c_str(), each.file);
      ::chmod(folder.c_str(), each.folder);
      expectReadOnly(file);
      ::chmod(folder.c_str(), 0755);
      for (const char* suffix : {"-wal", "-shm"}) fs::remove(file.native() + suffix);
    }
    // Not even to be read.
    ::chmod(file.c_str(), 0);
    EXPECT_NE(errorOf([&] { openLibraryFile(file); }).find("Failed to open database at"),
              std::string::npos);
    EXPECT_EQ(setAside(folder), 0U);
    ::chmod(file.c_str(), 0644);
    const DatabaseHandle database(openLibraryFile(file));
    EXPECT_EQ(LibrarySteps(database).stateNow(), LibrarySteps::stateAfter(1));
  });
}

}  // namespace
}  // namespace velorin
