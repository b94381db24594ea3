// The one connection to the library database, served by one serial queue.
//
// Reads and writes run one at a time in the order in which they were submitted, whatever thread
// submits them; a submitter waits until its closure has finished. A closure must not submit to the
// same queue again: it would wait for itself, so it gets an error instead.
#pragma once

#include <array>
#include <filesystem>
#include <memory>
#include <type_traits>

#include "foundation/SerialQueue.h"
#include "library/sqlite/ForeignKeys.h"

namespace velorin {

/// What a listing depends on, as bits of a set. Learned from each statement when it is compiled,
/// so that no operation can forget to tell.
enum class Facet : unsigned {
  library = 1,  ///< which tracks, albums and artists there are, and what they say of themselves
  plays = 2,    ///< tracks.totalPlays
  ratings = 4,  ///< tracks.rating
};

/// Grows whenever what it stands for may have changed, here or by another program.
struct LibraryVersion {
  std::uint64_t own = 0;     ///< transactions of ours that changed a facet asked for
  std::int64_t foreign = 0;  ///< SQLite's data_version: commits of other connections
  bool operator==(const LibraryVersion&) const = default;
};

class ConnectionQueue {
 public:
  /// Opens or creates the file and sets the connection up: foreign keys on, then WAL journal,
  /// synchronous NORMAL, cache, memory map and temporary tables in memory. Only for reading, the
  /// journal stays what it is and every write fails. Throws SqliteError.
  explicit ConnectionQueue(const std::filesystem::path& file,
                           sqlite::Access access = sqlite::Access::readWrite);
  /// A database in memory.
  ConnectionQueue();
  ~ConnectionQueue();

  /// Runs closure(Reader&) on the queue, against one unchanging state of the file, and returns what
  /// it returns. What it throws reaches the caller.
  template <class Closure>
  auto read(Closure&& closure) {
    return run<std::invoke_result_t<Closure, sqlite::Reader&>>(
        [&] { return inReadTransaction(closure); });
  }

  /// Runs closure(Writer&) on the queue inside one transaction, which commits when the closure
  /// returns and rolls back when it throws.
  template <class Closure>
  auto write(Closure&& closure) {
    return run<std::invoke_result_t<Closure, sqlite::Writer&>>(
        [&] { return inWriteTransaction(closure); });
  }

  /// The same while foreign keys are neither enforced nor followed, which lets SQLite empty a whole
  /// table at once. Throws and rolls back when the closure leaves a row without its parent.
  template <class Closure>
  void writeWithoutForeignKeys(Closure&& closure) {
    run<void>([&] {
      const sqlite::ForeignKeysSuspended suspended(*_connection);
      const auto checked = [&](sqlite::Writer& writer) {
        closure(writer);
        sqlite::checkForeignKeys(writer);
      };
      inWriteTransaction(checked);
    });
  }

  /// Runs closure(Connection&) on the queue outside any transaction: migrations, VACUUM INTO.
  template <class Closure>
  auto withConnection(Closure&& closure) {
    return run<std::invoke_result_t<Closure, sqlite::Connection&>>(
        [&] { return closure(*_connection); });
  }

  /// The version of a set of facets, Facet values or-ed together. Inside a read it stands for the
  /// state that the read sees.
  LibraryVersion version(sqlite::Reader& reader, unsigned facets) const;

  /// ":memory:" for one in memory.
  const std::filesystem::path& file() const noexcept { return _file; }

 private:
  template <class Result, class Work>
  Result run(Work&& work) {
    requireOtherThread();
    if constexpr (std::is_void_v<Result>) {
      _queue.sync(std::forward<Work>(work));
    } else {
      std::optional<Result> result;
      _queue.sync([&] { result.emplace(work()); });
      return std::move(*result);
    }
  }

  /// BEGIN … COMMIT, or ROLLBACK when it is left without a commit.
  class Transaction {
   public:
    Transaction(ConnectionQueue& queue, const char* begin);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit();

   private:
    ConnectionQueue& _queue;
    bool _open = true;
  };

  template <class Closure>
  auto inReadTransaction(Closure& closure) {
    Transaction transaction(*this, "BEGIN");
    sqlite::Reader reader(*_connection);
    return closure(reader);
  }

  template <class Closure>
  auto inWriteTransaction(Closure& closure) {
    // At once for writing: a transaction that begins as a reader may find the way barred later.
    Transaction transaction(*this, "BEGIN IMMEDIATE");
    sqlite::Writer writer(*_connection);
    if constexpr (std::is_void_v<std::invoke_result_t<Closure, sqlite::Writer&>>) {
      closure(writer);
      transaction.commit();
    } else {
      auto result = closure(writer);
      transaction.commit();
      return result;
    }
  }

  void requireOtherThread() const;
  void setUp(sqlite::Access access);

  std::filesystem::path _file;
  std::unique_ptr<sqlite::Connection> _connection;
  // One counter a facet, grown on the queue.
  std::array<std::uint64_t, 3> _versions{};
  SerialQueue _queue{"com.velorin.database"};
};

}  // namespace velorin
