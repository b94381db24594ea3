#include "library/scan/ScanText.h"

#include <unistd.h>

#include <fstream>

namespace velorin {

std::string grouped(std::size_t number) {
  std::string digits = std::to_string(number);
  for (std::size_t left = digits.size(); left > 3;) {
    left -= 3;
    digits.insert(left, 1, ',');
  }
  return digits;
}

std::string lastComponent(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos || path.size() == 1) return std::string(path);
  return std::string(path.substr(slash + 1));
}

std::string namesOf(const std::vector<std::string>& paths) {
  std::string names;
  for (const std::string& path : paths) {
    if (!names.empty()) names += ", ";
    names += lastComponent(path);
  }
  return names;
}

std::size_t memoryFootprintMB() {
  std::ifstream file("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  if (!(file >> total >> resident)) return 0;
  return (resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))) >> 20;
}

}  // namespace velorin
