// Names that count as one when they differ only in the case of A to Z.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "foundation/Text.h"

namespace velorin {

/// Numbers the different names from 0, in the order in which they are met. SQLite's NOCASE, for
/// walks that group millions of rows under few names.
class Spellings {
 public:
  /// The number of the name of which this is a spelling.
  std::size_t indexOf(std::string_view spelling) {
    // Neighbours mostly agree.
    if (_latest != nullptr && _latest->first == spelling) return _latest->second;
    auto known = _bySpelling.find(spelling);
    if (known == _bySpelling.end()) {
      const std::string folded = text::lowercaseASCII(spelling);
      const auto [name, isNew] = _byName.emplace(folded, _byName.size());
      known = _bySpelling.emplace(spelling, name->second).first;
    }
    _latest = &*known;
    return known->second;
  }

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
      return std::hash<std::string_view>{}(text);
    }
  };
  using Numbers = std::unordered_map<std::string, std::size_t, Hash, std::equal_to<>>;

  Numbers _bySpelling;
  Numbers _byName;  // in lower case
  const Numbers::value_type* _latest = nullptr;
};

}  // namespace velorin
