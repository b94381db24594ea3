// Numbers for row ids, for walks over millions of rows that belong to few others.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>

namespace velorin {

/// Numbers ids from 0, in the order in which they are added.
class IdIndex {
 public:
  /// The number of an id, which gets the next one when it is new.
  std::size_t add(std::int64_t id) {
    if (const auto known = find(id)) return *known;
    _latest = *_numbers.emplace(id, _numbers.size()).first;
    return _latest->second;
  }

  std::optional<std::size_t> find(std::int64_t id) {
    // Neighbours mostly agree: what belongs together came into the library together.
    if (_latest && _latest->first == id) return _latest->second;
    const auto found = _numbers.find(id);
    if (found == _numbers.end()) return std::nullopt;
    _latest = *found;
    return _latest->second;
  }

 private:
  std::unordered_map<std::int64_t, std::size_t> _numbers;
  std::optional<std::pair<std::int64_t, std::size_t>> _latest;
};

}  // namespace velorin
