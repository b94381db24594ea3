// A file decoded twice: by the bare library, and by our decoder into the ring of the size that
// playing uses.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "bench/BenchReport.h"

namespace velorin::bench {

struct DecodeRace {
  std::string name;     ///< of the figures, e.g. "FLAC 16/44.1"
  std::string library;  ///< who decodes alone, e.g. "libFLAC"
  std::filesystem::path path;
  std::uint64_t frames = 0;  ///< both must deliver exactly so many
  /// Decodes the whole file, throws the samples away and returns the frames. Throws
  /// std::runtime_error when it cannot.
  std::function<std::uint64_t()> decodeAlone;
};

/// Target of a decoder against its library.
inline constexpr double kSpeedOfLibrary = 0.95;

/// Reports, once for each route (true: integer output), our speed against the library's, held to
/// `target`, and as a multiple of real time.
///
/// Both are timed in processor time of this thread, in turns, so that neither what else the machine
/// does nor its changing clock favours one of them.
void runDecodeRace(BenchReport& report, const DecodeRace& race, std::initializer_list<bool> routes,
                   double target = kSpeedOfLibrary);

/// Reports the median and the worst time of many seeks all over the file, each with the first read
/// after it, from disk.
void reportSeekTime(BenchReport& report, const std::string& name,
                    const std::filesystem::path& path);

/// Runs an encoder from the search path that makes `made`; throws std::runtime_error with what it
/// printed when there is no such file afterwards.
void encode(const std::vector<std::string>& command, const std::filesystem::path& made);

}  // namespace velorin::bench
