// A long list of track ids in a fixed order, kept small.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace velorin {

/// Four bytes a track as long as the ids fit, which they do for the first four billion imports.
class TrackIdList {
 public:
  void reserve(std::size_t count) { _small.reserve(count); }

  void append(std::int64_t id) {
    if (_large.empty() && id >= 0 && id <= std::numeric_limits<std::uint32_t>::max()) {
      _small.push_back(static_cast<std::uint32_t>(id));
      return;
    }
    if (_large.empty()) {
      _large.assign(_small.begin(), _small.end());
      _small = {};
    }
    _large.push_back(id);
  }

  std::size_t size() const noexcept { return _small.size() + _large.size(); }
  std::size_t bytes() const noexcept {
    return _small.capacity() * sizeof(std::uint32_t) + _large.capacity() * sizeof(std::int64_t);
  }

  /// At most `limit` ids from `offset` on; fewer, or none, at the end.
  std::vector<std::int64_t> slice(std::size_t offset, std::size_t limit) const {
    const std::size_t from = std::min(offset, size());
    const std::size_t to = from + std::min(limit, size() - from);
    std::vector<std::int64_t> ids;
    ids.reserve(to - from);
    for (std::size_t i = from; i < to; ++i) ids.push_back(_large.empty() ? _small[i] : _large[i]);
    return ids;
  }

 private:
  std::vector<std::uint32_t> _small;
  std::vector<std::int64_t> _large;  // in use as soon as one id does not fit
};

}  // namespace velorin
