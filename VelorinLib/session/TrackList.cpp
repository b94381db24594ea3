#include "session/TrackList.h"

#include <algorithm>

#include "foundation/SerialQueue.h"

namespace velorin {
namespace {

/// From so many tracks on it takes longer than a moment to destroy them.
constexpr std::size_t kLargeBlock = 500;

void destroyElsewhere(const std::vector<TrackInfo>* tracks) {
  std::unique_ptr<const std::vector<TrackInfo>> owned(tracks);
  if (owned->size() < kLargeBlock) return;
  static SerialQueue queue("com.velorin.tracklists");
  queue.async([shared = std::shared_ptr<const std::vector<TrackInfo>>(std::move(owned))]() mutable {
    shared.reset();
  });
}

}  // namespace

TrackList::TrackList(std::vector<TrackInfo> tracks) {
  if (tracks.empty()) return;
  const Block block(new std::vector<TrackInfo>(std::move(tracks)), destroyElsewhere);
  _items.reserve(block->size());
  for (const TrackInfo& track : *block) _items.push_back(&track);
  _blocks.push_back(block);
}

void TrackList::insert(std::size_t at, const TrackList& tracks) {
  if (&tracks == this) return insert(at, TrackList(tracks));
  _items.insert(_items.begin() + static_cast<std::ptrdiff_t>(at), tracks._items.begin(),
                tracks._items.end());
  addBlocksOf(tracks);
}

void TrackList::addBlocksOf(const TrackList& tracks) {
  std::vector<Block> merged;
  merged.reserve(_blocks.size() + tracks._blocks.size());
  std::set_union(_blocks.begin(), _blocks.end(), tracks._blocks.begin(), tracks._blocks.end(),
                 std::back_inserter(merged));
  _blocks = std::move(merged);
}

void TrackList::move(std::size_t from, std::size_t to) {
  const auto first = _items.begin();
  const auto offset = [](std::size_t i) { return static_cast<std::ptrdiff_t>(i); };
  if (from < to) {
    std::rotate(first + offset(from), first + offset(from) + 1, first + offset(to) + 1);
  } else {
    std::rotate(first + offset(to), first + offset(from), first + offset(from) + 1);
  }
}

void TrackList::apply(const Changes& changes) {
  std::vector<TrackInfo> states;
  std::unordered_map<const TrackInfo*, std::size_t> places;
  for (const auto& [item, state] : changes) {
    places.emplace(item, states.size());
    states.push_back(state);
  }
  const TrackList fresh(std::move(states));
  bool isUsed = false;
  for (const TrackInfo*& item : _items) {
    const auto place = places.find(item);
    if (place == places.end()) continue;
    item = fresh._items[place->second];
    isUsed = true;
  }
  if (isUsed) addBlocksOf(fresh);
}

TrackList TrackList::from(std::size_t at) const {
  TrackList rest;
  rest._items.assign(_items.begin() + static_cast<std::ptrdiff_t>(at), _items.end());
  rest._blocks = _blocks;
  return rest;
}

}  // namespace velorin
