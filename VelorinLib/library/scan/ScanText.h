// Numbers, names and times as the scanner's lines show them.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace velorin {

/// 1234567 as "1,234,567".
std::string grouped(std::size_t number);

/// What follows the last '/' of a path, not counting one at its end.
std::string lastComponent(std::string_view path);

/// "a, b" of the folders' names.
std::string namesOf(const std::vector<std::string>& paths);

/// Memory that the process has resident, in units of 2^20 bytes; 0 when it cannot be told.
std::size_t memoryFootprintMB();

/// Seconds since it was made.
class Stopwatch {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
  }

 private:
  std::chrono::steady_clock::time_point _start = std::chrono::steady_clock::now();
};

}  // namespace velorin
