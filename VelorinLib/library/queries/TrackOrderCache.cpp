#include "library/queries/TrackOrderCache.h"

#include "foundation/Log.h"

namespace velorin {
namespace {

// The listings between which a listener goes back and forth.
constexpr std::size_t kEntries = 6;

// How often an order is begun anew because the library changed meanwhile.
constexpr int kAttempts = 3;

std::string keyOf(const TrackListing& listing) {
  std::string key = orderByText(listing);
  if (listing.filter) {
    key += listing.filter->text;
    for (const sqlite::Value& value : listing.filter->arguments) {
      // NUL stands in no text that a statement takes, so that no two lists give the same key.
      key += '\0';
      key += static_cast<char>('0' + value.index());
      std::visit(
          [&](const auto& held) {
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(held)>>) {
              key += fmt::format("{}", held);
            } else if constexpr (std::is_same_v<std::decay_t<decltype(held)>, std::string>) {
              key += held;
            }
          },
          value);
    }
  }
  return key;
}

unsigned facetsOf(const TrackListing& listing) {
  unsigned facets = static_cast<unsigned>(Facet::library);
  if (listing.sort && listing.sort->column == TrackSortColumn::plays) {
    facets |= static_cast<unsigned>(Facet::plays);
  }
  if (listing.sort && listing.sort->column == TrackSortColumn::rating) {
    facets |= static_cast<unsigned>(Facet::ratings);
  }
  return facets;
}

}  // namespace

TrackOrderCache::~TrackOrderCache() {
  _stopping = true;
}

std::shared_ptr<const TrackIdList> TrackOrderCache::find(const TrackListing& listing,
                                                         ConnectionQueue& queue,
                                                         sqlite::Reader& reader) {
  return find(keyOf(listing), queue, queue.version(reader, facetsOf(listing)));
}

std::shared_ptr<const TrackIdList> TrackOrderCache::find(const std::string& key,
                                                         const ConnectionQueue& queue,
                                                         const LibraryVersion& version) {
  const MutexLock lock(_mutex);
  const auto found = std::find_if(_entries.begin(), _entries.end(),
                                  [&](const Entry& entry) { return entry.key == key; });
  if (found == _entries.end()) return nullptr;
  if (found->version != version || found->queue.lock().get() != &queue) {
    _entries.erase(found);
    return nullptr;
  }
  Entry used = std::move(*found);
  _entries.erase(found);
  _entries.push_front(std::move(used));
  return _entries.front().order;
}

void TrackOrderCache::store(Entry entry) {
  const MutexLock lock(_mutex);
  std::erase_if(_entries, [&](const Entry& each) { return each.key == entry.key; });
  _entries.push_front(std::move(entry));
  if (_entries.size() > kEntries) _entries.pop_back();
}

void TrackOrderCache::prepare(const TrackListing& listing) {
  _queue.async([this, listing] {
    try {
      make(listing);
    } catch (const VelorinDatabaseError& error) {
      // Whoever asks for the listing gets the error from the plain statement.
      log::line("⚠️ Database: a listing could not be sorted ahead: {}", error.message);
    }
  });
}

void TrackOrderCache::prepareNow(const TrackListing& listing) {
  _queue.sync([&] { make(listing); });
}

void TrackOrderCache::waitUntilPrepared() {
  _queue.sync([] {});
}

void TrackOrderCache::make(const TrackListing& listing) {
  const auto queue = _database.dbQueue();
  if (!queue) return;
  const std::string key = keyOf(listing);
  const unsigned facets = facetsOf(listing);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    TrackOrder order(listing);
    LibraryVersion version;
    bool needed = true;
    queue->read([&](sqlite::Reader& reader) {
      version = queue->version(reader, facets);
      needed = find(key, *queue, version) == nullptr;
      if (needed) order.readParents(reader);
    });
    if (!needed) return;

    // Between two reads others have their turn; if one of them changed the library, what was read
    // is worth nothing.
    bool more = true;
    bool unchanged = true;
    while (more && unchanged) {
      if (_stopping) return;
      queue->read([&](sqlite::Reader& reader) {
        unchanged = queue->version(reader, facets) == version;
        if (unchanged) more = order.readTracks(reader);
      });
    }
    if (!unchanged) continue;
    store({key, version, queue, std::make_shared<const TrackIdList>(order.sorted())});
    return;
  }
}

}  // namespace velorin
