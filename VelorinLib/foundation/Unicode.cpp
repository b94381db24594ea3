#include "foundation/Unicode.h"

#include <string.h>

#include <algorithm>
#include <cstdint>
#include <span>

#include "foundation/Text.h"

namespace velorin::unicode {
namespace {

struct Range {
  char32_t first;
  char32_t last;
};

/// Every `stride`-th character from first to last, and how far away its lower case is.
struct CaseRange {
  char32_t first;
  char32_t last;
  std::uint8_t stride;
  std::int32_t delta;
};

#include "foundation/UnicodeTables.inl"

/// The range that may hold the character, or none.
template <class R>
const R* find(std::span<const R> ranges, char32_t c) noexcept {
  const auto after =
      std::upper_bound(ranges.begin(), ranges.end(), c,
                       [](char32_t value, const R& range) { return value < range.first; });
  if (after == ranges.begin() || std::prev(after)->last < c) return nullptr;
  return &*std::prev(after);
}

char32_t lowercase(char32_t c) noexcept {
  const CaseRange* range = find<CaseRange>(kLowercase, c);
  if (range == nullptr || (c - range->first) % range->stride != 0) return c;
  return static_cast<char32_t>(static_cast<std::int32_t>(c) + range->delta);
}

}  // namespace

bool isAlphanumeric(char32_t codePoint) noexcept {
  return find<Range>(kAlphanumeric, codePoint) != nullptr;
}

std::string lowercased(std::string_view bytes) {
  constexpr char32_t kCapitalIWithDot = 0x130;  // alone in becoming two characters
  std::string out;
  out.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size();) {
    const text::CodePoint point = text::decode(bytes, i);
    i += point.length;
    if (point.value == kCapitalIWithDot) {
      out += "i\u0307";
    } else {
      text::append(out, lowercase(point.value));
    }
  }
  return out;
}

NameOrder::NameOrder() : _locale(::newlocale(LC_COLLATE_MASK | LC_CTYPE_MASK, "", nullptr)) {}

std::string NameOrder::key(std::string_view name) const {
  std::string folded = lowercased(name);
  std::replace(folded.begin(), folded.end(), '\0', ' ');  // would end it for the collation
  if (!_locale) return folded;
  std::string key(::strxfrm_l(nullptr, folded.c_str(), 0, _locale.get()), '\0');
  ::strxfrm_l(key.data(), folded.c_str(), key.size() + 1, _locale.get());
  return key;
}

}  // namespace velorin::unicode
