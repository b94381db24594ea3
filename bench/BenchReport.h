// What the benches measured, each figure beside its target.
#pragma once

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace velorin::bench {

/// A bound that a figure is held to.
struct Target {
  enum class Kind { atLeast, atMost };
  Kind kind = Kind::atLeast;
  double value = 0;
};

inline Target atLeast(double value) {
  return {Target::Kind::atLeast, value};
}
inline Target atMost(double value) {
  return {Target::Kind::atMost, value};
}

/// One figure. A figure without a target informs only, and counts as met.
struct Figure {
  std::string name;  ///< "bench: what was measured"
  double value = 0;
  std::string unit;
  std::optional<Target> target;

  /// False for a value that is not a number, whatever the target.
  bool isMet() const;
};

/// Collects figures in the order in which they come. One thread.
class BenchReport {
 public:
  void add(std::string name, double value, std::string unit,
           std::optional<Target> target = std::nullopt);

  /// Prefix of the names that follow: the bench at work.
  void setBench(std::string name) { _bench = std::move(name); }

  const std::vector<Figure>& figures() const { return _figures; }
  bool areAllMet() const;

  /// The table for people.
  void print(std::FILE* out) const;

  /// A JSON array of {name, value, unit, target, met}; target is null where there is none. Throws
  /// std::runtime_error when the file cannot be written.
  void writeJson(const std::filesystem::path& path) const;

 private:
  std::string _bench;
  std::vector<Figure> _figures;
};

}  // namespace velorin::bench
