#include "bench/LibraryFixture.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>

#include "foundation/Log.h"

extern char** environ;

namespace velorin::bench {
namespace {

namespace fs = std::filesystem;

// History and "recently added" count from the day on which the file was made.
constexpr std::chrono::hours kFreshFor{14 * 24};

constexpr const char* kShellSetUp =
    "PRAGMA foreign_keys = ON;\n"
    "PRAGMA journal_mode = WAL;\n"
    "PRAGMA synchronous = NORMAL;\n"
    "PRAGMA cache_size = -65536;\n"
    "PRAGMA mmap_size = 268435456;\n"
    "PRAGMA temp_store = MEMORY;\n";

fs::path cacheFolder() {
  return fs::path(VELORIN_BENCH_CACHE);
}

bool isFresh(const fs::path& file) {
  std::error_code missing;
  const auto written = fs::last_write_time(file, missing);
  return !missing && fs::file_time_type::clock::now() - written < kFreshFor;
}

/// Runs a program to its end.
void runProgram(std::vector<std::string> command) {
  std::vector<char*> arguments;
  for (std::string& each : command) arguments.push_back(each.data());
  arguments.push_back(nullptr);
  pid_t child = -1;
  int status = -1;
  if (::posix_spawn(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
      ::waitpid(child, &status, 0) != child || status != 0) {
    throw std::runtime_error(command[0] + " failed");
  }
}

void build(const fs::path& file) {
  std::fprintf(stderr, "building a library of %zu tracks, once\n", kMillion);
  fs::create_directories(file.parent_path());
  const fs::path unfinished = file.native() + ".part";
  for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(unfinished.native() + suffix);
  runProgram({VELORIN_SYNTHETIC_LIBRARY, std::to_string(kMillion), unfinished.native()});
  fs::rename(unfinished, file);
}

std::string quoted(const std::string& text) {
  std::string out = "'";
  for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

/// What a shell command prints; empty when it cannot be run.
std::optional<std::string> outputOf(const std::string& command) {
  std::FILE* pipe = ::popen(command.c_str(), "re");
  if (pipe == nullptr) return std::nullopt;
  std::string out;
  char block[4096];
  while (const std::size_t count = std::fread(block, 1, sizeof block, pipe)) {
    out.append(block, count);
  }
  if (::pclose(pipe) != 0) return std::nullopt;
  return out;
}

bool hasShell() {
  static const bool kFound = [] {
    const bool found = outputOf("command -v sqlite3").has_value();
    if (!found) std::fprintf(stderr, "sqlite3 is not installed: nothing to compare with\n");
    return found;
  }();
  return kFound;
}

/// The times of the shell's ".timer".
std::vector<Took> timesIn(const std::string& output) {
  constexpr const char* kMark = "Run Time: real ";
  std::vector<Took> times;
  for (auto at = output.find(kMark); at != std::string::npos; at = output.find(kMark, at + 1)) {
    double real = 0;
    double user = 0;
    double system = 0;
    if (std::sscanf(output.c_str() + at, "Run Time: real %lf user %lf sys %lf", &real, &user,
                    &system) == 3) {
      times.push_back({1000 * real, 1000 * (user + system)});
    }
  }
  return times;
}

}  // namespace

const fs::path& millionTracks() {
  static const fs::path kFile = [] {
    const fs::path file = cacheFolder() / fmt::format("{}-tracks.sqlite", kMillion);
    if (!isFresh(file)) build(file);
    return file;
  }();
  return kFile;
}

ScratchLibrary::ScratchLibrary() : _file(cacheFolder() / "scratch.sqlite") {
  const fs::path& original = millionTracks();
  remove();
  fs::copy_file(original, _file);
}

ScratchLibrary::~ScratchLibrary() {
  remove();
}

void ScratchLibrary::remove() const {
  std::error_code ignored;
  for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(_file.native() + suffix, ignored);
}

std::shared_ptr<DatabaseManager> openQuietly(const fs::path& file) {
  log::setMinimumLevel(log::Level::warning);
  auto library = DatabaseManager::open(file);
  log::setMinimumLevel(log::Level::info);
  return library;
}

double processorMs() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return 1e3 * static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_nsec);
}

Took medianOf(std::vector<Took> runs) {
  const auto middle = runs.begin() + static_cast<std::ptrdiff_t>(runs.size() / 2);
  std::ranges::nth_element(runs, middle, {}, &Took::wall);
  return *middle;
}

void addTook(BenchReport& report, const std::string& name, const Took& took,
             std::optional<Target> target) {
  constexpr double kMuchLess = 0.75;
  report.add(name, took.wall, "ms", target);
  if (took.processor < kMuchLess * took.wall) {
    report.add("    of which processor time", took.processor, "ms");
  }
}

std::optional<ShellTime> shellTime(const fs::path& file, const std::string& sql) {
  if (!hasShell()) return std::nullopt;
  const fs::path script = cacheFolder() / "statement.sql";
  // The timer writes to standard output, whatever .output says.
  std::ofstream(script) << kShellSetUp << ".output /dev/null\n.timer on\n"
                        << sql << ";\n"
                        << sql << ";\n";
  const auto output =
      outputOf(fmt::format("sqlite3 -batch -bail {} <{}", quoted(file), quoted(script)));
  fs::remove(script);
  const auto times = output ? timesIn(*output) : std::vector<Took>();
  if (times.size() != 2) throw std::runtime_error("the sqlite3 shell failed at: " + sql);
  return ShellTime{times[0], times[1]};
}

void addShell(BenchReport& report, const std::string& name, const std::string& sql) {
  const auto time = shellTime(millionTracks(), sql);
  if (!time) return;
  addTook(report, "  sqlite3 shell, " + name + ", first time", time->first);
  addTook(report, "  sqlite3 shell, " + name + ", again", time->again);
}

}  // namespace velorin::bench
