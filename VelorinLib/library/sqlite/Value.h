// What is bound to a statement.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace velorin::sqlite {

using TimePoint = std::chrono::system_clock::time_point;
using Blob = std::vector<std::byte>;

/// One bound value that owns its bytes, for arguments that are put together at run time.
using Value = std::variant<std::nullptr_t, std::int64_t, double, std::string>;
using Values = std::vector<Value>;

/// "?,?,…" with so many question marks.
std::string placeholders(std::size_t count);

/// IN lists are cut into slices of so many, so that no statement exceeds the bind limit.
inline constexpr std::size_t kSliceSize = 500;

/// Calls `use` with spans of at most kSliceSize elements, in order.
template <class T, class Use>
void forEachSlice(const std::vector<T>& all, Use&& use) {
  for (std::size_t from = 0; from < all.size(); from += kSliceSize) {
    use(std::span<const T>(all).subspan(from, std::min(kSliceSize, all.size() - from)));
  }
}

}  // namespace velorin::sqlite
