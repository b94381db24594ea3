#include "library/queries/PathPrefix.h"

namespace velorin {

PathPrefix::PathPrefix(std::string_view folder) : _begin(folder) {
  if (!_begin.ends_with('/')) _begin += '/';
  _end = _begin;
  _end.back() = '/' + 1;
}

std::int64_t PathPrefix::restPosition() const noexcept {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(_begin[i]); };
  std::int64_t characters = 0;
  for (std::size_t i = 0; i < _begin.size(); ++characters) {
    if (byte(i++) < 0xC0) continue;
    while (i < _begin.size() && (byte(i) & 0xC0) == 0x80) ++i;
  }
  return characters + 1;
}

}  // namespace velorin
