// The listener's queue, played and unplayed alike, and the place in it.
#pragma once

#include <cstdint>
#include <optional>
#include <random>

#include "session/TrackList.h"

namespace velorin {

/// Pure; one thread. What has been played and the current item keep their places: only what comes
/// after the index can be moved or removed.
///
/// While shuffle is on, original() is the order to which turning it off returns. Edits are made in
/// both, so that nothing comes back that was removed and nothing is lost that was added.
class Timeline {
 public:
  /// The same seed gives the same shuffles.
  explicit Timeline(std::uint64_t seed) : _random(seed) {}

  const TrackList& items() const noexcept { return _items; }
  const TrackList& original() const noexcept { return _original; }
  bool isShuffled() const noexcept { return _isShuffled; }
  int index() const noexcept { return _index; }  ///< -1 when nothing is selected
  std::size_t size() const noexcept { return _items.size(); }
  /// The item at the index; null when nothing is selected.
  const TrackInfo* selected() const;

  /// Makes the list the timeline. With shuffle on, the item at `start` goes first and the others
  /// follow in any order. False, and nothing happens, when there is no such item.
  bool setTo(TrackList tracks, std::size_t start);
  /// A list in the order that it had when it was stored. An index past the end becomes the last.
  void restore(TrackList tracks, int index);
  void select(std::size_t index) { _index = static_cast<int>(index); }
  void clear();

  void append(const TrackList& tracks);
  void insertAfterCurrent(const TrackList& tracks);
  bool remove(std::size_t index);
  /// `to` counts as before the removal: the item goes in front of what stands there.
  bool move(std::size_t from, std::size_t to);
  /// Takes an item out that turned out to be gone: the selected one if it is that, else the first
  /// that is. The index then names what comes next, or the last item.
  void dropVanished(const Track& track);

  /// On: what follows the index comes into any order. Off: what follows in the original order
  /// follows again. Nothing but the flag changes while nothing is loaded.
  void setShuffled(bool on, const TrackInfo* current);
  /// The flag alone, as it was stored.
  void rememberShuffled(bool on) { _isShuffled = on; }

  /// Where the item stands: looked for at `expected` first, then from the index on, then from the
  /// start.
  std::optional<std::size_t> find(const Track& track,
                                  std::optional<std::size_t> expected = std::nullopt) const;

  void apply(const TrackList::Changes& changes) {
    _items.apply(changes);
    _original.apply(changes);
  }

 private:
  std::size_t next() const noexcept { return static_cast<std::size_t>(_index + 1); }
  /// Behind what the listener is at, in the original order.
  std::size_t placeInOriginal() const;

  TrackList _items;
  TrackList _original;
  int _index = -1;
  bool _isShuffled = false;
  std::mt19937_64 _random;
};

}  // namespace velorin
