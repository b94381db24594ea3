#include "session/Timeline.h"

#include <algorithm>

#include "session/PlayerTypes.h"

namespace velorin {
namespace {

std::optional<std::size_t> indexOf(const TrackList& list, const Track& track, std::size_t from,
                                   std::size_t to) {
  for (std::size_t i = from; i < to; ++i) {
    if (isSameItem(list[i].track, track)) return i;
  }
  return std::nullopt;
}

/// The very item first: that needs no look into the tracks.
std::optional<std::size_t> indexOf(const TrackList& list, const TrackInfo& info) {
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (&list[i] == &info) return i;
  }
  return indexOf(list, info.track, 0, list.size());
}

}  // namespace

const TrackInfo* Timeline::selected() const {
  if (_index < 0 || static_cast<std::size_t>(_index) >= _items.size()) return nullptr;
  return &_items[static_cast<std::size_t>(_index)];
}

bool Timeline::setTo(TrackList tracks, std::size_t start) {
  if (start >= tracks.size()) return false;
  _original = {};
  _items = std::move(tracks);
  _index = static_cast<int>(start);
  if (_isShuffled) {
    _original = _items;
    _items.move(start, 0);
    _items.shuffle(1, _random);
    _index = 0;
  }
  return true;
}

void Timeline::restore(TrackList tracks, int index) {
  _original = {};
  _items = std::move(tracks);
  _index = std::clamp(index, _items.empty() ? -1 : 0, static_cast<int>(_items.size()) - 1);
}

void Timeline::clear() {
  _items = {};
  _original = {};
  _index = -1;
}

std::size_t Timeline::placeInOriginal() const {
  const TrackInfo* at = selected();
  const auto place = at != nullptr ? indexOf(_original, *at) : std::nullopt;
  return place ? *place + 1 : _original.size();
}

void Timeline::append(const TrackList& tracks) {
  _items.append(tracks);
  if (!_original.empty()) _original.append(tracks);
}

void Timeline::insertAfterCurrent(const TrackList& tracks) {
  if (!_original.empty()) _original.insert(placeInOriginal(), tracks);
  _items.insert(std::min(_items.size(), next()), tracks);
}

bool Timeline::remove(std::size_t index) {
  if (index < next() || index >= _items.size()) return false;
  if (!_original.empty()) {
    if (const auto place = indexOf(_original, _items[index])) _original.erase(*place);
  }
  _items.erase(index);
  return true;
}

bool Timeline::move(std::size_t from, std::size_t to) {
  if (from >= _items.size() || to >= _items.size() + 1 || from < next() || to < next()) {
    return false;
  }
  if (from == to) return false;
  const std::size_t target = to - (from < to ? 1 : 0);
  _items.move(from, std::max(std::min(_items.size() - 1, target), next()));
  return true;
}

void Timeline::dropVanished(const Track& track) {
  const TrackInfo* at = selected();
  const auto gone = at != nullptr && isSameItem(at->track, track)
                        ? std::optional(static_cast<std::size_t>(_index))
                        : indexOf(_items, track, 0, _items.size());
  if (!gone) return;
  if (!_original.empty()) {
    if (const auto place = indexOf(_original, _items[*gone])) _original.erase(*place);
  }
  _items.erase(*gone);
  if (static_cast<int>(*gone) < _index) --_index;
  _index = std::min(_index, static_cast<int>(_items.size()) - 1);
}

void Timeline::setShuffled(bool on, const TrackInfo* current) {
  _isShuffled = on;
  if (current == nullptr) return;
  if (on) {
    _original = _items;
    _items.shuffle(std::min(_items.size(), next()), _random);
    return;
  }
  const TrackInfo* at = selected();
  if (const auto place = indexOf(_original, at != nullptr ? *at : *current)) {
    _items.truncate(next());
    _items.append(_original.from(*place + 1));
  }
  _original = {};
}

std::optional<std::size_t> Timeline::find(const Track& track,
                                          std::optional<std::size_t> expected) const {
  if (expected && *expected < _items.size() && isSameItem(_items[*expected].track, track)) {
    return expected;
  }
  const auto middle = static_cast<std::size_t>(std::max(_index, 0));
  if (const auto ahead = indexOf(_items, track, middle, _items.size())) return ahead;
  return indexOf(_items, track, 0, std::min(middle, _items.size()));
}

}  // namespace velorin
