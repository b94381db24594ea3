// The figures of the Home page.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velorin {

struct LabelledCount {
  std::string label;
  std::int64_t count = 0;

  bool operator==(const LabelledCount&) const = default;
};

struct HomeStats {
  double totalDuration = 0;                  ///< seconds
  std::int64_t totalSize = 0;                ///< bytes
  std::vector<LabelledCount> formatCounts;   ///< most frequent first
  std::vector<LabelledCount> qualityCounts;  ///< "Hi-Res", "CD", "DSD", "Lossy", none that is 0
  /// "YYYY-MM" and the tracks that came in that month, without a gap from the first to the last.
  std::vector<LabelledCount> monthlyGrowth;

  bool operator==(const HomeStats&) const = default;
};

}  // namespace velorin
