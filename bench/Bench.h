// How a bench registers itself, and how it takes time.
#pragma once

#include <time.h>

#include <chrono>
#include <limits>
#include <string_view>
#include <vector>

#include "bench/BenchReport.h"

namespace velorin::bench {

using Run = void (*)(BenchReport& report);

struct Bench {
  std::string_view name;
  Run run;
};

/// Every bench of the program, sorted by name.
std::vector<Bench> allBenches();

/// Registers a bench during static initialisation:
///     const Registration kRing("ring", [](BenchReport& report) { … });
class Registration {
 public:
  Registration(std::string_view name, Run run);
};

/// Wall-clock seconds of the fastest of so many runs: the machine's hiccups only ever add.
template <class Work>
double secondsOf(int runs, Work&& work) {
  double best = std::numeric_limits<double>::infinity();
  for (int i = 0; i < runs; ++i) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    if (took.count() < best) best = took.count();
  }
  return best;
}

/// Seconds that the calling thread itself computed, of the cheapest of so many runs: for figures
/// "per core", which other programs on the machine must not spoil.
template <class Work>
double cpuSecondsOf(int runs, Work&& work) {
  const auto now = [] {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  };
  double best = std::numeric_limits<double>::infinity();
  for (int i = 0; i < runs; ++i) {
    const double start = now();
    work();
    const double took = now() - start;
    if (took < best) best = took;
  }
  return best;
}

/// Keeps the optimiser from dropping the work that led to a value.
template <class Value>
void keep(const Value& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

}  // namespace velorin::bench
