// What listings have worked out of the whole library, kept until the library changes.
#pragma once

#include <algorithm>
#include <deque>
#include <memory>
#include <span>
#include <vector>

#include "foundation/Mutex.h"
#include "library/ConnectionQueue.h"

namespace velorin {

/// Holds, for each of the keys that were asked for last, a list of rows: at most six lists and a
/// million rows together, of 8 to 48 bytes. A longer list is made, but not kept. Any thread.
template <class Key, class Row>
class ListingCache {
 public:
  using Rows = std::shared_ptr<const std::vector<Row>>;

  /// The rows of `key` for this state of the library; made by build() where they are not here.
  /// Called inside a read of that queue. build() may get() another key.
  template <class Build>
  Rows get(const std::shared_ptr<ConnectionQueue>& queue, const LibraryVersion& version,
           const Key& key, Build&& build) {
    if (Rows kept = find(queue, version, key)) return kept;
    const auto made = std::make_shared<const std::vector<Row>>(build());
    keep({queue, version, key, made});
    return made;
  }

 private:
  static constexpr std::size_t kMaxLists = 6;
  static constexpr std::size_t kMaxRows = 1'000'000;

  struct Entry {
    std::weak_ptr<ConnectionQueue> queue;  // a version means something only on its queue
    LibraryVersion version;
    Key key;
    Rows rows;

    bool isOf(const std::shared_ptr<ConnectionQueue>& other, const LibraryVersion& state) const {
      return version == state && !queue.owner_before(other) && !other.owner_before(queue);
    }
  };

  Rows find(const std::shared_ptr<ConnectionQueue>& queue, const LibraryVersion& version,
            const Key& key) {
    const MutexLock lock(_mutex);
    std::erase_if(_entries, [&](const Entry& each) { return !each.isOf(queue, version); });
    const auto found = std::find_if(_entries.begin(), _entries.end(),
                                    [&](const Entry& each) { return each.key == key; });
    if (found == _entries.end()) return nullptr;
    std::rotate(_entries.begin(), found, found + 1);
    return _entries.front().rows;
  }

  void keep(Entry entry) {
    if (entry.rows->size() > kMaxRows) return;
    const MutexLock lock(_mutex);
    _entries.push_front(std::move(entry));
    std::size_t rows = 0;
    std::size_t lists = 0;
    for (const Entry& each : _entries) {
      rows += each.rows->size();
      if (rows > kMaxRows || lists == kMaxLists) break;
      ++lists;
    }
    _entries.resize(lists);
  }

  Mutex _mutex;
  std::deque<Entry> _entries GUARDED_BY(_mutex);  // the one used last in front
};

/// The rows that LIMIT and OFFSET would leave: a limit below 0 is none, an offset below 0 is 0.
template <class Row>
std::span<const Row> pageOf(const std::vector<Row>& rows, std::int64_t limit, std::int64_t offset) {
  const auto count = static_cast<std::int64_t>(rows.size());
  const std::int64_t from = std::clamp<std::int64_t>(offset, 0, count);
  const std::int64_t left = count - from;
  const std::int64_t size = limit < 0 ? left : std::min(limit, left);
  return std::span(rows).subspan(static_cast<std::size_t>(from), static_cast<std::size_t>(size));
}

}  // namespace velorin
