#include "library/queries/PathTable.h"

#include <bit>
#include <functional>
#include <limits>
#include <stdexcept>

namespace velorin {
namespace {

constexpr std::size_t kBlockSize = std::size_t{1} << 20;
constexpr std::size_t kFewestSlots = 16;

}  // namespace

void PathTable::reserve(std::size_t count) {
  _entries.reserve(count);
  spread(count * 2);
}

void PathTable::insert(std::string_view key, bool isCue, std::int64_t value) {
  if (_entries.size() >= std::numeric_limits<std::uint32_t>::max() || key.size() >= std::size_t{1}
                                                                                        << 31) {
    throw std::length_error("too much for a table of paths");
  }
  if ((_entries.size() + 1) * 2 > _slots.size()) spread((_entries.size() + 1) * 4);
  std::uint32_t& slot = _slots[slotOf(key)];
  if (slot != 0) return;
  const std::size_t nameStart = key.rfind('/') + 1;  // 0 without a '/'
  const std::string_view folder = key.substr(0, nameStart);
  if (_folders.empty() || _folders.back() != folder) _folders.push_back(keep(folder));
  const std::string_view name = keep(key.substr(nameStart));
  _entries.push_back({name.data(), static_cast<std::uint32_t>(_folders.size() - 1),
                      static_cast<std::uint32_t>(name.size()), isCue ? 1U : 0U, value});
  slot = static_cast<std::uint32_t>(_entries.size());
}

std::optional<std::int64_t> PathTable::find(std::string_view key) const noexcept {
  if (_entries.empty()) return std::nullopt;
  const std::uint32_t slot = _slots[slotOf(key)];
  if (slot == 0) return std::nullopt;
  return _entries[slot - 1].value;
}

std::size_t PathTable::slotOf(std::string_view key) const noexcept {
  // The number of slots is a power of two, and at most half of them are taken.
  const std::size_t mask = _slots.size() - 1;
  std::size_t at = std::hash<std::string_view>{}(key)&mask;
  for (; _slots[at] != 0; at = (at + 1) & mask) {
    const Entry& entry = _entries[_slots[at] - 1];
    const std::string_view folder = _folders[entry.folder];
    if (key.size() == folder.size() + entry.nameLength && key.ends_with(nameOf(entry)) &&
        key.starts_with(folder)) {
      break;
    }
  }
  return at;
}

void PathTable::spread(std::size_t slots) {
  slots = std::bit_ceil(std::max(slots, kFewestSlots));
  if (slots <= _slots.size()) return;
  _slots = std::vector<std::uint32_t>(slots);
  std::string key;
  for (std::size_t i = 0; i < _entries.size(); ++i) {
    key.assign(_folders[_entries[i].folder]).append(nameOf(_entries[i]));
    _slots[slotOf(key)] = static_cast<std::uint32_t>(i + 1);
  }
}

std::string_view PathTable::keep(std::string_view text) {
  if (text.size() > _freeInBlock) {
    const std::size_t size = std::max(kBlockSize, text.size());
    _blocks.push_back(std::make_unique_for_overwrite<char[]>(size));
    _free = _blocks.back().get();
    _freeInBlock = size;
  }
  char* const start = _free;
  text.copy(start, text.size());
  _free += text.size();
  _freeInBlock -= text.size();
  return {start, text.size()};
}

}  // namespace velorin
