// A library of a million tracks to measure with, and the sqlite3 shell to compare with.
#pragma once

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bench/Bench.h"
#include "library/DatabaseManager.h"

namespace velorin::bench {

inline constexpr std::size_t kMillion = 1'000'000;

/// The file of a made-up library of a million tracks. Built by the program synthetic_library the
/// first time, which takes a minute or two, and kept in the build folder for two weeks; nobody
/// writes to it. Throws std::runtime_error.
const std::filesystem::path& millionTracks();

/// A copy of it to write to, removed with the object.
class ScratchLibrary {
 public:
  ScratchLibrary();
  ~ScratchLibrary();
  ScratchLibrary(const ScratchLibrary&) = delete;
  ScratchLibrary& operator=(const ScratchLibrary&) = delete;
  const std::filesystem::path& file() const { return _file; }

 private:
  void remove() const;
  std::filesystem::path _file;
};

/// Opens a library without a line in the log.
std::shared_ptr<DatabaseManager> openQuietly(const std::filesystem::path& file);

/// Milliseconds of the work, wall-clock.
template <class Work>
double milliseconds(Work&& work) {
  return 1000 * secondsOf(1, work);
}

double medianOf(std::vector<double> values);

/// Milliseconds of the work, median of so many runs.
template <class Work>
double medianMs(int runs, Work&& work) {
  std::vector<double> times;
  for (int i = 0; i < runs; ++i) times.push_back(milliseconds(work));
  return medianOf(std::move(times));
}

/// Milliseconds of `work(manager)` on a library that was opened for it, median of so many runs.
template <class Work>
double coldMs(int runs, Work&& work) {
  std::vector<double> times;
  for (int i = 0; i < runs; ++i) {
    const auto library = openQuietly(millionTracks());
    times.push_back(milliseconds([&] { work(*library); }));
  }
  return medianOf(std::move(times));
}

/// What a statement takes in the sqlite3 shell, milliseconds.
struct ShellTime {
  double first = 0;  ///< right after opening the file
  double again = 0;
};

/// Runs the statement twice in a shell of its own, set up as our connection is, with the rows
/// thrown away. Empty where there is no sqlite3. Throws std::runtime_error when the shell fails.
std::optional<ShellTime> shellTime(const std::filesystem::path& file, const std::string& sql);

/// Adds the shell's figures for a statement on the million tracks, to stand below our own.
void addShell(BenchReport& report, const std::string& name, const std::string& sql);

}  // namespace velorin::bench
