// A list of tracks that is cheap to hold, to copy and to reorder.
//
// A queue may have 100,000 items, of a kilobyte each. Here the items never move: the list holds
// their addresses, and shares the blocks in which they came. So a copy, a shuffle or a cut costs
// eight bytes for each item, and the main thread can do it at any size.
#pragma once

#include <compare>
#include <cstddef>
#include <iterator>
#include <memory>
#include <random>
#include <unordered_map>
#include <vector>

#include "records/TrackInfo.h"

namespace velorin {

/// A value type; reads like a vector of TrackInfo. An item stays at its address for as long as
/// any list holds it. Large blocks are destroyed on a thread of their own. One list: one thread
/// at a time; two copies of it: any threads.
class TrackList {
 public:
  using value_type = TrackInfo;
  using size_type = std::size_t;

  class const_iterator {
   public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = TrackInfo;
    using difference_type = std::ptrdiff_t;
    using pointer = const TrackInfo*;
    using reference = const TrackInfo&;

    const_iterator() = default;
    reference operator*() const { return **_at; }
    pointer operator->() const { return *_at; }
    reference operator[](difference_type n) const { return *_at[n]; }
    const_iterator& operator++() { return *this += 1; }
    const_iterator& operator--() { return *this -= 1; }
    const_iterator operator++(int) { return const_iterator(_at++); }
    const_iterator operator--(int) { return const_iterator(_at--); }
    const_iterator& operator+=(difference_type n) {
      _at += n;
      return *this;
    }
    const_iterator& operator-=(difference_type n) { return *this += -n; }
    friend const_iterator operator+(const_iterator i, difference_type n) { return i += n; }
    friend const_iterator operator+(difference_type n, const_iterator i) { return i += n; }
    friend const_iterator operator-(const_iterator i, difference_type n) { return i -= n; }
    friend difference_type operator-(const_iterator a, const_iterator b) { return a._at - b._at; }
    auto operator<=>(const const_iterator&) const = default;

   private:
    friend class TrackList;
    explicit const_iterator(const TrackInfo* const* at) : _at(at) {}
    const TrackInfo* const* _at = nullptr;
  };
  using iterator = const_iterator;

  TrackList() = default;
  TrackList(std::vector<TrackInfo> tracks);  // NOLINT: a vector of tracks is a list of tracks

  std::size_t size() const noexcept { return _items.size(); }
  bool empty() const noexcept { return _items.empty(); }
  const TrackInfo& operator[](std::size_t i) const { return *_items[i]; }
  const TrackInfo& front() const { return *_items.front(); }
  const TrackInfo& back() const { return *_items.back(); }
  const_iterator begin() const { return const_iterator(_items.data()); }
  const_iterator end() const { return const_iterator(_items.data() + _items.size()); }

  // Positions are at most size(), or below it where they name an item.
  void insert(std::size_t at, const TrackList& tracks);
  void append(const TrackList& tracks) { insert(size(), tracks); }
  void erase(std::size_t at) { _items.erase(_items.begin() + static_cast<std::ptrdiff_t>(at)); }
  /// Drops everything from there on.
  void truncate(std::size_t size) { _items.resize(std::min(size, _items.size())); }
  /// Takes the item out and puts it where it then has the position `to`.
  void move(std::size_t from, std::size_t to);
  /// Other states of items, such as new tags, by the addresses of the old ones.
  using Changes = std::unordered_map<const TrackInfo*, TrackInfo>;
  void apply(const Changes& changes);
  /// The items from there to the end.
  TrackList from(std::size_t at) const;

  /// Brings the items from there on into any order, each as likely as the others.
  template <class Random>
  void shuffle(std::size_t from, Random& random) {
    for (std::size_t i = size(); i > from + 1; --i) {
      std::uniform_int_distribution<std::size_t> pick(from, i - 1);
      std::swap(_items[i - 1], _items[pick(random)]);
    }
  }

 private:
  using Block = std::shared_ptr<const std::vector<TrackInfo>>;

  void addBlocksOf(const TrackList& tracks);

  std::vector<const TrackInfo*> _items;
  std::vector<Block> _blocks;  // what _items point into, and perhaps more; sorted, each once
};

}  // namespace velorin
