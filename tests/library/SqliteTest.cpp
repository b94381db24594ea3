// The thin layer over SQLite: binding, reading, transactions, and what changes were made.

#include <gtest/gtest.h>

#include "library/ConnectionQueue.h"

namespace velorin {
namespace {

using sqlite::Reader;
using sqlite::Writer;

constexpr const char* kTable = "CREATE TABLE t (id INTEGER PRIMARY KEY, a, b)";

TEST(Sqlite, WhatIsBoundIsReadBack) {
  ConnectionQueue queue;
  const sqlite::TimePoint moment(std::chrono::milliseconds(1'700'000'000'123));
  const sqlite::Blob bytes{std::byte{0}, std::byte{255}};
  queue.write([&](Writer& writer) {
    writer.run(kTable);
    writer.run("INSERT INTO t (a, b) VALUES (?, ?), (?, ?), (?, ?)", std::optional<int>{},
               std::string_view(), moment, bytes, true, sqlite::Values{std::int64_t{1} << 60});
  });
  queue.read([&](Reader& reader) {
    EXPECT_EQ(reader.column<std::string>("SELECT typeof(a) || ' ' || typeof(b) FROM t ORDER BY id"),
              (std::vector<std::string>{"null text", "text blob", "integer integer"}));
    EXPECT_EQ(reader.column<std::optional<std::string>>("SELECT a FROM t WHERE id < 3"),
              (std::vector<std::optional<std::string>>{{}, "2023-11-14 22:13:20.123"}));
    EXPECT_EQ(reader.first<sqlite::TimePoint>("SELECT a FROM t WHERE id = 2"), moment);
    EXPECT_EQ(reader.first<sqlite::Blob>("SELECT b FROM t WHERE id = 2"), bytes);
    EXPECT_EQ(reader.first<std::int64_t>("SELECT b FROM t WHERE id = 3"), std::int64_t{1} << 60);
  });
}

TEST(Sqlite, WrongUseIsRefused) {
  ConnectionQueue queue;
  queue.write([](Writer& writer) { writer.run(kTable); });
  const auto writing = [&](auto&& closure) { queue.write(closure); };
  EXPECT_THROW(writing([](Writer& w) { w.run("INSERT INTO t (a) VALUES (?)"); }),
               VelorinDatabaseError);
  EXPECT_THROW(writing([](Writer& w) { w.run("INSERT INTO t (a) VALUES (?)", 1, 2); }),
               VelorinDatabaseError);
  EXPECT_THROW(
      writing([](Writer& w) { w.run("INSERT INTO t (a) VALUES (?)", std::string("a\0b", 3)); }),
      VelorinDatabaseError);
  EXPECT_THROW(queue.read([](Reader& r) { return r.first<int>("DELETE FROM t RETURNING id"); }),
               VelorinDatabaseError);
  EXPECT_THROW(writing([&](Writer&) { queue.read([](Reader&) {}); }), VelorinDatabaseError);
  EXPECT_THROW(writing([](Writer& w) { w.run("INSERT INTO nothing VALUES (1)"); }),
               sqlite::SqliteError);
  EXPECT_EQ(queue.read([](Reader& r) { return r.first<int>("SELECT COUNT(*) FROM t"); }), 0);
}

TEST(Sqlite, AWriteThatThrowsLeavesNothing) {
  ConnectionQueue queue;
  queue.write([](Writer& writer) { writer.run(kTable); });
  EXPECT_THROW(queue.write([](Writer& writer) {
    writer.run("INSERT INTO t (a) VALUES (1)");
    throw std::runtime_error("changed my mind");
  }),
               std::runtime_error);
  EXPECT_EQ(queue.read([](Reader& r) { return r.first<int>("SELECT COUNT(*) FROM t"); }), 0);
  EXPECT_EQ(queue.write([](Writer& w) { return w.run("INSERT INTO t (a) VALUES (1), (2)"); }), 2);
}

TEST(Sqlite, TheSameTextMayRunInsideItself) {
  ConnectionQueue queue;
  queue.write([](Writer& writer) {
    writer.run(kTable);
    writer.run("INSERT INTO t (a) VALUES (1), (2), (3)");
  });
  const int pairs = queue.read([](Reader& reader) {
    int count = 0;
    reader.each("SELECT a FROM t", [&](const sqlite::Row&) {
      reader.each("SELECT a FROM t", [&](const sqlite::Row&) { ++count; });
    });
    return count;
  });
  EXPECT_EQ(pairs, 9);
}

TEST(Sqlite, TheVersionTellsWhatAListingMayHaveToReadAnew) {
  ConnectionQueue queue;
  queue.write([](Writer& writer) {
    writer.connection().executeScript(R"(
CREATE TABLE artists (id INTEGER PRIMARY KEY, name TEXT);
CREATE TABLE albums (id INTEGER PRIMARY KEY, title TEXT, artworkPath TEXT,
                     artistId INTEGER REFERENCES artists ON DELETE CASCADE);
CREATE TABLE tracks (id INTEGER PRIMARY KEY, title TEXT, totalPlays INTEGER, rating INTEGER,
                     lyrics TEXT, albumId INTEGER REFERENCES albums ON DELETE CASCADE);
CREATE TABLE playbackHistory (trackId INTEGER);
)");
  });
  constexpr std::array kFacets{Facet::library, Facet::plays, Facet::ratings};
  const auto versions = [&] {
    return queue.read([&](Reader& reader) {
      std::vector<LibraryVersion> all;
      for (const Facet facet : kFacets) {
        all.push_back(queue.version(reader, static_cast<unsigned>(facet)));
      }
      return all;
    });
  };
  struct Case {
    const char* sql;
    unsigned changed;
  };
  for (const Case& each : {
           Case{"INSERT INTO tracks (title) VALUES ('a')", 7},
           Case{"UPDATE tracks SET title = 'b'", 1},
           Case{"UPDATE tracks SET totalPlays = 1", 2},
           Case{"UPDATE tracks SET rating = 1", 4},
           Case{"UPDATE tracks SET rating = 1, title = 'c'", 5},
           Case{"UPDATE tracks SET lyrics = 'la'", 0},
           Case{"INSERT INTO playbackHistory VALUES (1)", 0},
           Case{"UPDATE albums SET artworkPath = 'x'", 0},
           Case{"UPDATE albums SET title = 'x'", 1},
           Case{"DELETE FROM tracks", 7},
           Case{"DELETE FROM artists", 7},
       }) {
    const auto before = versions();
    queue.write([&](Writer& writer) { writer.run(each.sql); });
    const auto after = versions();
    for (std::size_t i = 0; i < kFacets.size(); ++i) {
      EXPECT_EQ(before[i] != after[i], (each.changed & static_cast<unsigned>(kFacets[i])) != 0)
          << each.sql << ", facet " << i;
    }
  }
}

}  // namespace
}  // namespace velorin
