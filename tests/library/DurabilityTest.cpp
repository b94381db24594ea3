// Kills a process in the middle of its work on a library, many times, and looks at what is left.

#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "library/LibraryFile.h"
#include "library/LibrarySteps.h"
#include "library/schema/Migrator.h"
#include "support/ReportingChild.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;
using sqlite::Connection;
using sqlite::Reader;
using test::LibrarySteps;

std::string lines(Connection& connection, std::string_view sql) {
  std::string text;
  Reader(connection).each(sql, [&](const sqlite::Row& row) {
    text += row.get<std::string>(0) + "\n";
  });
  return text;
}

/// The file in itself, its references, and the index against the tracks.
void expectSound(Connection& connection) {
  EXPECT_EQ(lines(connection, "PRAGMA integrity_check"), "ok\n");
  EXPECT_EQ(lines(connection, "PRAGMA foreign_key_check"), "");
  EXPECT_NO_THROW(
      connection.executeScript("INSERT INTO tracks_fts(tracks_fts) VALUES ('integrity-check')"));
  EXPECT_EQ(lines(connection, R"(
SELECT COUNT(*) FROM tracks t
JOIN artists ar ON ar.id = t.artistId
JOIN albums al ON al.id = t.albumId
LEFT JOIN tracks_fts f ON f.rowid = t.id
WHERE (f.title, f.artistName, f.albumTitle) IS NOT (t.title, ar.name, al.title)
)"),
            "0\n");
  EXPECT_EQ(lines(connection, "SELECT rowid FROM tracks_fts EXCEPT SELECT id FROM tracks"), "");
}

/// What a killed writer's reports say.
struct Reports {
  explicit Reports(const std::string& text)
      : done(std::count(text.begin(), text.end(), ')')),
        commits(std::count(text.begin(), text.end(), 'c')),
        last(text.empty() ? ' ' : text.back()) {}
  bool insideATransaction() const { return last == 'w' || last == 'c'; }

  std::int64_t done;
  std::int64_t commits;
  char last;
};

TEST(Durability, AKillLeavesTheStateBeforeAStepOrAfterIt) {
  constexpr int kRounds = 60;
  const test::TemporaryFolder folder;
  const auto file = folder / "library.sqlite";
  {
    const DatabaseHandle database(openLibraryFile(file));
    LibrarySteps(database).prepare();
  }
  std::mt19937 random(20240601);
  std::int64_t first = 0;
  std::map<std::int64_t, int> kills;  // inside a transaction, by the kind of step
  int killsInCommits = 0;
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE(round);
    test::ReportingChild writer({LIBRARY_WRITER, file, std::to_string(first)});
    // From the middle of one step on, or of one of its commits.
    writer.waitFor(round % 3 == 0 ? 'c' : 'w', 1 + static_cast<int>(random() % 6));
    EXPECT_TRUE(writer.kill(std::chrono::microseconds(random() % 3000)))
        << "the writer gave up by itself";
    const Reports reports(writer.reports());
    const std::int64_t reported = first + reports.done;
    if (reports.insideATransaction()) ++kills[reported % LibrarySteps::kKinds];
    killsInCommits += reports.last == 'c' ? 1 : 0;

    const auto queue = std::make_shared<ConnectionQueue>(file);
    queue->withConnection(expectSound);
    const DatabaseHandle database(queue);
    const std::string state = LibrarySteps(database).stateNow();
    if (state == LibrarySteps::stateAfter(reported)) {
      first = reported;
    } else {
      ASSERT_EQ(state, LibrarySteps::stateAfter(reported + 1));
      first = reported + 1;
    }
  }
  // Else the kills fell elsewhere and the rounds above prove nothing.
  EXPECT_EQ(kills.size(), LibrarySteps::kKinds);
  EXPECT_GT(killsInCommits, 0);
  for (const auto& [kind, count] : kills) {
    RecordProperty("killedInsideStepOfKind" + std::to_string(kind), count);
  }
  RecordProperty("killedInsideCommits", killsInCommits);
}

/// Everything that the steps of the history touch.
std::string contentOf(Connection& connection) {
  return lines(connection, R"(
SELECT t.id || ' ' || t.title || ' ' || t.filePath || ' ' || t.albumId || ' ' || t.artistId || ' '
       || al.title || ' ' || ar.name || ' ' || quote(al.worstFormat) || quote(t.year)
FROM tracks t JOIN artists ar ON ar.id = t.artistId JOIN albums al ON al.id = t.albumId
)") + lines(connection, "SELECT identifier FROM grdb_migrations ORDER BY rowid");
}

TEST(Durability, AMigrationThatIsKilledGoesOnWhereItWas) {
  constexpr int kRounds = 30;
  const test::TemporaryFolder folder;
  const auto old = folder / "old.sqlite";
  const auto file = folder / "library.sqlite";
  {
    ConnectionQueue queue(old);
    queue.withConnection([](Connection& connection) {
      schema::migrate(connection, "v1");
      connection.executeScript(R"(
WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 999)
INSERT INTO artists (name) SELECT CASE i % 2 WHEN 0 THEN 'ARTIST ' ELSE 'Artist ' END || (i / 2)
FROM n;
INSERT INTO albums (title, artistId, year) SELECT 'Album', id, 1900 + id % 100 FROM artists;
INSERT INTO tracks (title, duration, filePath, albumId, artistId, format)
SELECT 'Title ' || id, 1, '/music/' || id, id, artistId, 'FLAC' FROM albums;
)");
    });
  }
  const auto restore = [&] {
    for (const char* suffix : {"-wal", "-shm"}) fs::remove(file.native() + suffix);
    fs::copy_file(old, file, fs::copy_options::overwrite_existing);
  };
  restore();
  std::string expected;
  {
    ConnectionQueue queue(file);
    queue.withConnection([](Connection& connection) { schema::migrate(connection); });
    expected = queue.withConnection(contentOf);
  }
  const auto history = schema::migrations();
  std::mt19937 random(20240602);
  int killedInside = 0;
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE(round);
    restore();
    test::ReportingChild writer({LIBRARY_WRITER, file, "migrate"});
    writer.waitFor('c', static_cast<int>(random() % history.size()));
    writer.kill(std::chrono::microseconds(random() % 3000));
    const Reports reports(writer.reports());
    killedInside += reports.insideATransaction() ? 1 : 0;

    ConnectionQueue queue(file);
    const auto done = queue.read([](Reader& reader) {
      return reader.column<std::string>("SELECT identifier FROM grdb_migrations ORDER BY rowid");
    });
    const auto steps = static_cast<std::int64_t>(done.size());
    // "v1" was there; a commit that had begun may have been in time or not.
    EXPECT_LE(steps, 1 + reports.commits);
    EXPECT_GE(steps, 1 + reports.commits - (reports.last == 'c' ? 1 : 0));
    EXPECT_TRUE(std::ranges::equal(done, history.first(done.size()), {}, {},
                                   &schema::Migration::identifier));
    queue.withConnection([](Connection& connection) {
      EXPECT_EQ(lines(connection, "PRAGMA integrity_check"), "ok\n");
      EXPECT_EQ(lines(connection, "PRAGMA foreign_key_check"), "");
      schema::migrate(connection);
      expectSound(connection);
    });
    EXPECT_EQ(queue.withConnection(contentOf), expected);
  }
  EXPECT_GT(killedInside, kRounds / 4);
  RecordProperty("killedInside", killedInside);
}

/// After a power cut the end of the log may be missing, or hold anything.
TEST(Durability, AnyBeginningOfTheLogIsAStateThatOnceWas) {
  constexpr std::int64_t kSteps = 12;
  const test::TemporaryFolder folder;
  const auto file = folder / "library.sqlite";
  const auto cut = folder / "cut.sqlite";
  const auto queue = openLibraryFile(file);
  const DatabaseHandle database(queue);
  LibrarySteps steps(database);
  steps.prepare();
  queue->withConnection([](Connection& connection) {
    connection.executeScript("PRAGMA wal_checkpoint(TRUNCATE); PRAGMA wal_autocheckpoint = 0;");
  });
  std::vector<std::string> states;
  for (std::int64_t step = 0; step < kSteps; ++step) {
    states.push_back(LibrarySteps::stateAfter(step));
    steps.run(step);
  }
  states.push_back(LibrarySteps::stateAfter(kSteps));
  const auto size = fs::file_size(file.native() + "-wal");

  std::mt19937 random(20240603);
  std::set<std::size_t> seen;
  for (std::uintmax_t round = 0; round <= 24; ++round) {
    const auto kept = round == 24 ? size : size * round / 24 + random() % 4096;
    SCOPED_TRACE(kept);
    fs::remove(cut.native() + "-shm");
    fs::copy_file(file, cut, fs::copy_options::overwrite_existing);
    fs::copy_file(file.native() + "-wal", cut.native() + "-wal",
                  fs::copy_options::overwrite_existing);
    fs::resize_file(cut.native() + "-wal", kept);
    if (round % 2 == 1) {
      std::ofstream(cut.native() + "-wal", std::ios::app) << std::string(9000, '\x5a');
    }
    const auto opened = std::make_shared<ConnectionQueue>(cut);
    opened->withConnection(expectSound);
    const DatabaseHandle left(opened);
    const auto state = std::ranges::find(states, LibrarySteps(left).stateNow());
    ASSERT_NE(state, states.end());
    const auto at = static_cast<std::size_t>(state - states.begin());
    EXPECT_TRUE(seen.empty() || at >= *seen.rbegin()) << "more of the log, and less of the library";
    seen.insert(at);
  }
  EXPECT_TRUE(seen.contains(kSteps));
  EXPECT_GT(seen.size(), 5U);
}

}  // namespace
}  // namespace velorin
