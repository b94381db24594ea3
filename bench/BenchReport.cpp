#include "bench/BenchReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace velorin::bench {
namespace {

const char* signOf(Target::Kind kind) {
  return kind == Target::Kind::atLeast ? ">=" : "<=";
}

std::string targetText(const Figure& figure) {
  if (!figure.target) return "-";
  return fmt::format("{} {:.6g}", signOf(figure.target->kind), figure.target->value);
}

const char* verdict(const Figure& figure) {
  if (!figure.target) return "";
  return figure.isMet() ? "met" : "MISSED";
}

}  // namespace

bool Figure::isMet() const {
  if (std::isnan(value)) return false;
  if (!target) return true;
  return target->kind == Target::Kind::atLeast ? value >= target->value : value <= target->value;
}

void BenchReport::add(std::string name, double value, std::string unit,
                      std::optional<Target> target) {
  _figures.push_back({.name = _bench.empty() ? std::move(name) : _bench + ": " + name,
                      .value = value,
                      .unit = std::move(unit),
                      .target = target});
}

bool BenchReport::areAllMet() const {
  return std::ranges::all_of(_figures, [](const Figure& figure) { return figure.isMet(); });
}

void BenchReport::print(std::FILE* out) const {
  std::size_t width = 10;
  for (const Figure& figure : _figures) width = std::max(width, figure.name.size());
  for (const Figure& figure : _figures) {
    fmt::print(out, "{:<{}}  {:>12.6g} {:<14} {:>12}  {}\n", figure.name, width, figure.value,
               figure.unit, targetText(figure), verdict(figure));
  }
}

void BenchReport::writeJson(const std::filesystem::path& path) const {
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  for (const Figure& figure : _figures) {
    nlohmann::ordered_json row;
    row["name"] = figure.name;
    row["value"] = figure.value;
    row["unit"] = figure.unit;
    row["target"] = figure.target ? nlohmann::ordered_json(figure.target->value) : nullptr;
    row["met"] = figure.isMet();
    all.push_back(std::move(row));
  }
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << all.dump(1) << '\n';
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace velorin::bench
