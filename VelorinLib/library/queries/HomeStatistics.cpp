#include "library/queries/HomeStatistics.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>

#include "foundation/Text.h"

namespace velorin {
namespace {

/// What a track sounds like on paper: its format and, 0 when unknown, its bit depth and its rate
/// in hertz.
struct Encoding {
  std::optional<std::string> format;
  std::int64_t bitDepth = 0;
  std::int64_t sampleRate = 0;

  auto operator<=>(const Encoding&) const = default;
};

enum class Quality { hiRes, cd, dsd, lossy };
constexpr std::array<const char*, 4> kQualityLabels{"Hi-Res", "CD", "DSD", "Lossy"};

Quality qualityOf(const Encoding& encoding) {
  const std::string format = text::lowercaseASCII(encoding.format.value_or(""));
  if (format == "dsd" || format == "dsf" || format == "dff") return Quality::dsd;
  if (format == "mp3" || format == "aac" || format == "ogg" || format == "opus") {
    return Quality::lossy;
  }
  return encoding.bitDepth < 17 && encoding.sampleRate < 48'001 ? Quality::cd : Quality::hiRes;
}

/// The month of a moment in the library's text form, counted from the year 0.
std::optional<int> monthOf(std::string_view text) {
  int digits[6];
  constexpr std::array<std::size_t, 6> kPlaces{0, 1, 2, 3, 5, 6};
  if (text.size() < 7 || text[4] != '-') return std::nullopt;
  for (std::size_t i = 0; i < kPlaces.size(); ++i) {
    digits[i] = text[kPlaces[i]] - '0';
    if (digits[i] < 0 || digits[i] > 9) return std::nullopt;
  }
  const int year = 1000 * digits[0] + 100 * digits[1] + 10 * digits[2] + digits[3];
  const int month = 10 * digits[4] + digits[5];
  if (month < 1 || month > 12) return std::nullopt;
  return 12 * year + month - 1;
}

/// Adds up one track after the other. SQLite would sort the tracks for each grouping anew.
class HomeTally {
 public:
  /// The columns duration, fileSize, format, bitDepth, sampleRate and lastModified.
  void add(const sqlite::Row& row) {
    _totalDuration += row.get<double>(0);
    const auto size = row.get<std::int64_t>(1);
    if (__builtin_add_overflow(_totalSize, size, &_totalSize)) {
      _totalSize = std::numeric_limits<std::int64_t>::max();
    }
    ++_encodings[{row.get<std::optional<std::string>>(2), row.get<std::int64_t>(3),
                  row.get<std::int64_t>(4)}];
    if (const auto month = monthOf(row.get<std::string_view>(5))) ++_months[*month];
  }

  HomeStats stats() const {
    return {_totalDuration, _totalSize, formatCounts(), qualityCounts(), monthlyGrowth()};
  }

 private:
  std::vector<LabelledCount> formatCounts() const {
    std::map<std::string, std::int64_t> formats;
    for (const auto& [encoding, count] : _encodings) {
      formats[encoding.format.value_or("Unknown")] += count;
    }
    std::vector<LabelledCount> counts;
    for (const auto& [format, count] : formats) counts.push_back({format, count});
    std::stable_sort(
        counts.begin(), counts.end(),
        [](const LabelledCount& a, const LabelledCount& b) { return a.count > b.count; });
    return counts;
  }

  std::vector<LabelledCount> qualityCounts() const {
    std::array<std::int64_t, kQualityLabels.size()> buckets{};
    for (const auto& [encoding, count] : _encodings) {
      buckets[static_cast<std::size_t>(qualityOf(encoding))] += count;
    }
    std::vector<LabelledCount> counts;
    for (std::size_t i = 0; i < buckets.size(); ++i) {
      if (buckets[i] > 0) counts.push_back({kQualityLabels[i], buckets[i]});
    }
    return counts;
  }

  std::vector<LabelledCount> monthlyGrowth() const {
    std::vector<LabelledCount> growth;
    if (_months.empty()) return growth;
    for (int month = _months.begin()->first; month <= _months.rbegin()->first; ++month) {
      const auto found = _months.find(month);
      growth.push_back({fmt::format("{:04}-{:02}", month / 12, month % 12 + 1),
                        found == _months.end() ? 0 : found->second});
    }
    return growth;
  }

  double _totalDuration = 0;
  std::int64_t _totalSize = 0;
  std::map<Encoding, std::int64_t> _encodings;
  std::map<int, std::int64_t> _months;
};

}  // namespace

std::optional<HomeStats> HomeStatistics::kept(const std::shared_ptr<ConnectionQueue>& queue,
                                              const LibraryVersion& version) const {
  const MutexLock lock(_keptLock);
  if (!_kept || _kept->queue.lock() != queue || _kept->version != version) return std::nullopt;
  return _kept->stats;
}

HomeStats HomeStatistics::fetchHomeStats() const {
  const auto queue = _database.dbQueue();
  if (!queue) return {};
  return queue->read([&](sqlite::Reader& reader) {
    const auto version = queue->version(reader, static_cast<unsigned>(Facet::library));
    if (auto stats = kept(queue, version)) return *std::move(stats);
    HomeTally tally;
    reader.each("SELECT duration, fileSize, format, bitDepth, sampleRate, lastModified FROM tracks",
                [&](const sqlite::Row& row) { tally.add(row); });
    HomeStats stats = tally.stats();
    const MutexLock lock(_keptLock);
    _kept = Kept{queue, version, stats};
    return stats;
  });
}

}  // namespace velorin
