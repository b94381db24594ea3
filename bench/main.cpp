// velorin_bench [--filter TEXT] [--json FILE] [--list]
//
// Runs every bench, or those whose name contains TEXT, prints each figure beside its target and
// writes them to FILE. Exits with 0 when all targets are met, 1 when one is missed or a bench
// fails, 2 on wrong usage.
#include <algorithm>
#include <cstring>
#include <exception>
#include <string>

#include "bench/Bench.h"

namespace velorin::bench {
namespace {

std::vector<Bench>& registry() {
  static std::vector<Bench> benches;
  return benches;
}

struct Options {
  std::string filter;
  std::string json;
  bool listOnly = false;
};

bool parse(int count, char** arguments, Options& options) {
  for (int i = 1; i < count; ++i) {
    const std::string_view argument = arguments[i];
    const bool hasValue = i + 1 < count;
    if (argument == "--list") {
      options.listOnly = true;
    } else if (argument == "--filter" && hasValue) {
      options.filter = arguments[++i];
    } else if (argument == "--json" && hasValue) {
      options.json = arguments[++i];
    } else {
      return false;
    }
  }
  return true;
}

int runAll(const Options& options) {
  BenchReport report;
  bool failed = false;
  std::size_t ran = 0;
  for (const Bench& bench : allBenches()) {
    if (bench.name.find(options.filter) == std::string_view::npos) continue;
    ++ran;
    if (options.listOnly) {
      std::printf("%.*s\n", static_cast<int>(bench.name.size()), bench.name.data());
      continue;
    }
    std::fprintf(stderr, "running %.*s\n", static_cast<int>(bench.name.size()), bench.name.data());
    report.setBench(std::string(bench.name));
    try {
      bench.run(report);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "the bench failed: %s\n", error.what());
      failed = true;
    }
  }
  if (ran == 0) {
    std::fprintf(stderr, "no bench is called like \"%s\"; see --list\n", options.filter.c_str());
    return 2;
  }
  if (options.listOnly) return 0;
  report.print(stdout);
  if (!options.json.empty()) report.writeJson(options.json);
  return failed || !report.areAllMet() ? 1 : 0;
}

}  // namespace

Registration::Registration(std::string_view name, Run run) {
  registry().push_back({name, run});
}

std::vector<Bench> allBenches() {
  std::vector<Bench> benches = registry();
  std::ranges::sort(benches, {}, &Bench::name);
  return benches;
}

}  // namespace velorin::bench

int main(int count, char** arguments) {
  velorin::bench::Options options;
  if (!velorin::bench::parse(count, arguments, options)) {
    std::fputs("usage: velorin_bench [--filter TEXT] [--json FILE] [--list]\n", stderr);
    return 2;
  }
  try {
    return velorin::bench::runAll(options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "velorin_bench: %s\n", error.what());
    return 1;
  }
}
