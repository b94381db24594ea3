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

/// Processor time that this process has used, milliseconds.
double processorMs();

/// What a piece of work took, milliseconds.
struct Took {
  double wall = 0;
  double processor = 0;  ///< of all threads of this process
};

/// The time of one run.
template <class Work>
Took tookOf(Work&& work) {
  const double computed = processorMs();
  const double wall = 1000 * secondsOf(1, work);
  return {wall, processorMs() - computed};
}

/// The run of the middle wall-clock time.
Took medianOf(std::vector<Took> runs);

template <class Work>
Took medianOf(int runs, Work&& work) {
  std::vector<Took> times;
  for (int i = 0; i < runs; ++i) times.push_back(tookOf(work));
  return medianOf(std::move(times));
}

/// The median of so many runs of `work(manager)`, each on a library that was just opened.
template <class Work>
Took coldMedianOf(int runs, Work&& work) {
  std::vector<Took> times;
  for (int i = 0; i < runs; ++i) {
    const auto library = openQuietly(millionTracks());
    times.push_back(tookOf([&] { work(*library); }));
  }
  return medianOf(std::move(times));
}

/// Adds the wall-clock time; below it the processor time where that is much less: other programs
/// were busy, or the disk was waited for.
void addTook(BenchReport& report, const std::string& name, const Took& took,
             std::optional<Target> target = std::nullopt);

/// What a statement takes in the sqlite3 shell.
struct ShellTime {
  Took first;  ///< right after opening the file
  Took again;
};

/// Runs the statement twice in a shell of its own, set up as our connection is, with the rows
/// thrown away. Empty where there is no sqlite3. Throws std::runtime_error when the shell fails.
std::optional<ShellTime> shellTime(const std::filesystem::path& file, const std::string& sql);

/// Adds the shell's figures for a statement on the million tracks, to stand below our own.
void addShell(BenchReport& report, const std::string& name, const std::string& sql);

}  // namespace velorin::bench
