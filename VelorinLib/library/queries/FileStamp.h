// Size and modification time of a file in one number, to tell whether the file has changed.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace velorin {

/// 32 bits for the time above 32 bits for the size, both mixed. Two states of a file that agree in
/// size and in the millisecond of their time have the same stamp; that a changed file keeps its
/// stamp is a matter of one in 2^32. The library keeps milliseconds, so what lies below is left
/// out. 0, the stamp of an empty file, tells nothing. Pure, any thread.
inline std::int64_t fileStamp(std::int64_t size,
                              std::optional<std::chrono::system_clock::time_point> modified) {
  if (size <= 0) return 0;
  // The finaliser of SplitMix64: every bit of the input reaches every bit of the result.
  const auto half = [](std::int64_t value) {
    std::uint64_t mixed = static_cast<std::uint64_t>(value) + 0x9E3779B97F4A7C15U;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
    return (mixed >> 32) | 1;  // 0 stands for "not known"
  };
  std::uint64_t stamp = half(size);
  if (modified) {
    const auto time = std::chrono::floor<std::chrono::milliseconds>(modified->time_since_epoch());
    stamp |= half(time.count()) << 32;
  }
  return static_cast<std::int64_t>(stamp);
}

/// False when the stamps cannot be of one state of a file. What one of them does not know, the
/// time or all, is no difference.
inline bool isSameState(std::int64_t a, std::int64_t b) {
  if (a == 0 || b == 0) return true;
  const auto time = [](std::int64_t stamp) { return static_cast<std::uint64_t>(stamp) >> 32; };
  const auto size = [](std::int64_t stamp) { return static_cast<std::uint32_t>(stamp); };
  return size(a) == size(b) && (time(a) == time(b) || time(a) == 0 || time(b) == 0);
}

}  // namespace velorin
