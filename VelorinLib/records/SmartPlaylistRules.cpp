#include "records/SmartPlaylistRules.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include "foundation/Uuid.h"

namespace velorin {
namespace {

using nlohmann::json;
using nlohmann::ordered_json;
using Rule = SmartPlaylistRules::Rule;

constexpr std::size_t kLargestText = 1 << 20;
constexpr std::size_t kMostRules = 500;
// Values are destroyed by recursion: what is nested without end must not come so far.
constexpr int kDeepest = 16;

// Each in the order of its enumeration.
constexpr std::array<std::string_view, 2> kModes{"all", "any"};
constexpr std::array<std::string_view, 18> kFields{
    "artist",      "album",        "title",        "genre",
    "composer",    "format",       "year",         "duration",
    "bpm",         "energy",       "danceability", "isVocal",
    "mood",        "keySignature", "playCount",    "lastPlayedDaysAgo",
    "isFavourite", "rating"};
constexpr std::array<std::string_view, 11> kOperators{
    "is",          "isNot",    "contains", "startsWith", "endsWith", "equals",
    "greaterThan", "lessThan", "between",  "isTrue",     "isFalse"};
constexpr std::array<std::string_view, 13> kSortFields{
    "artist", "album",        "title",     "genre",      "year",   "duration", "bpm",
    "energy", "danceability", "playCount", "lastPlayed", "rating", "random"};
constexpr std::array<std::string_view, 4> kValues{"string", "number", "range", "bool"};

template <class Names, class Case>
std::string_view nameOf(const Names& names, Case value) noexcept {
  const auto at = static_cast<std::size_t>(value);
  return at < names.size() ? names[at] : std::string_view{};
}

/// Whole numbers stand without a fraction: 120, not 120.0.
ordered_json numberJSON(double number) {
  constexpr double kExactIntegers = 9'007'199'254'740'992;  // 2^53
  if (std::isnan(number)) return 0;
  if (std::trunc(number) == number && std::abs(number) <= kExactIntegers) {
    return static_cast<std::int64_t>(number);
  }
  return std::clamp(number, std::numeric_limits<double>::lowest(),
                    std::numeric_limits<double>::max());
}

ordered_json valueJSON(const RuleValue& value) {
  ordered_json payload;
  if (const auto* const text = std::get_if<std::string>(&value)) {
    payload["_0"] = *text;
  } else if (const auto* const number = std::get_if<double>(&value)) {
    payload["_0"] = numberJSON(*number);
  } else if (const auto* const range = std::get_if<NumberRange>(&value)) {
    payload["_0"] = numberJSON(range->lower);
    payload["_1"] = numberJSON(range->upper);
  } else {
    payload["_0"] = std::get<bool>(value);
  }
  ordered_json object;
  object[std::string(kValues[value.index()])] = std::move(payload);
  return object;
}

/// "line 3, column 7", both from 1.
std::string placeOf(std::string_view text, std::size_t byte) {
  const std::string_view before = text.substr(0, byte > 0 ? byte - 1 : 0);
  const std::size_t lastBreak = before.rfind('\n');
  return fmt::format("line {}, column {}", 1 + std::ranges::count(before, '\n'),
                     before.size() - (lastBreak == before.npos ? 0 : lastBreak + 1) + 1);
}

json parsed(std::string_view text) {
  if (text.size() > kLargestText) throw SmartPlaylistRulesError{"longer than 1 MiB", {}};
  bool isTooDeep = false;
  const auto keep = [&](int depth, json::parse_event_t, json&) {
    if (depth > kDeepest) isTooDeep = true;
    return depth <= kDeepest;
  };
  try {
    json document = json::parse(text, keep);
    if (isTooDeep) throw SmartPlaylistRulesError{"nested too deeply", {}};
    return document;
  } catch (const json::parse_error& error) {
    throw SmartPlaylistRulesError{"not JSON from here on", placeOf(text, error.byte)};
  } catch (const json::exception&) {
    throw SmartPlaylistRulesError{"a number is too large", {}};
  }
}

/// Reads the parts of one object; every fault is thrown with the object's place.
class ObjectReader {
 public:
  ObjectReader(const json& object, std::string place) : _object(object), _place(std::move(place)) {
    if (!object.is_object()) fail("not an object");
  }

  [[noreturn]] void fail(std::string message) const {
    throw SmartPlaylistRulesError{std::move(message), _place};
  }

  /// Null where the key is absent or holds null.
  const json* find(const char* key) const {
    const auto found = _object.find(key);
    return found == _object.end() || found->is_null() ? nullptr : &*found;
  }
  const json& require(const char* key) const {
    const json* const found = find(key);
    if (!found) fail(fmt::format("\"{}\" is missing", key));
    return *found;
  }

  std::string text(const char* key) const {
    const json& found = require(key);
    if (!found.is_string()) fail(fmt::format("\"{}\" is not a text", key));
    return found.get<std::string>();
  }
  bool boolean(const char* key) const {
    const json& found = require(key);
    if (!found.is_boolean()) fail(fmt::format("\"{}\" is not true or false", key));
    return found.get<bool>();
  }
  double number(const char* key) const {
    const json& found = require(key);
    if (!found.is_number()) fail(fmt::format("\"{}\" is not a number", key));
    return found.get<double>();
  }

  /// One of the names, as the case at its place.
  template <class Case, class Names>
  Case oneOf(const char* key, const Names& names) const {
    const std::string name = text(key);
    const auto found = std::ranges::find(names, name);
    if (found == names.end()) {
      fail(fmt::format("\"{}\" is \"{}\", not one of {}", key, name, fmt::join(names, ", ")));
    }
    return static_cast<Case>(found - names.begin());
  }

 private:
  const json& _object;
  std::string _place;
};

std::optional<std::int64_t> limitOf(const ObjectReader& document) {
  if (!document.find("limit")) return std::nullopt;
  const double limit = document.number("limit");
  if (std::trunc(limit) != limit || std::abs(limit) >= 0x1p63) {
    document.fail("\"limit\" is not a whole number");
  }
  return document.require("limit").is_number_float()
             ? static_cast<std::int64_t>(limit)
             : document.require("limit").get<std::int64_t>();
}

RuleValue valueOf(const json& value, const std::string& place) {
  const ObjectReader object(value, place + ", value");
  if (value.size() != 1) object.fail("Invalid number of keys found, expected one.");
  const std::string& kind = value.begin().key();
  const ObjectReader payload(value.begin().value(), place + ", value, " + kind);
  if (kind == "string") return payload.text("_0");
  if (kind == "number") return payload.number("_0");
  if (kind == "range") return NumberRange{payload.number("_0"), payload.number("_1")};
  if (kind == "bool") return payload.boolean("_0");
  object.fail(fmt::format("there is no \"{}\", only {}", kind, fmt::join(kValues, ", ")));
}

Rule ruleOf(const json& value, const std::string& place) {
  const ObjectReader object(value, place);
  Rule rule;
  rule.id = object.text("id");
  if (!isUuid(rule.id)) object.fail("\"id\" is not a UUID");
  for (char& each : rule.id) each = static_cast<char>(std::toupper(each));
  rule.field = object.oneOf<RuleField>("field", kFields);
  rule.op = object.oneOf<RuleOperator>("op", kOperators);
  rule.value = valueOf(object.require("value"), place);
  return rule;
}

SmartPlaylistRules rulesOf(const json& value) {
  const ObjectReader document(value, {});
  SmartPlaylistRules rules;
  rules.matchMode = document.oneOf<MatchMode>("matchMode", kModes);
  const json& list = document.require("rules");
  if (!list.is_array()) document.fail("\"rules\" is not a list");
  if (list.size() > kMostRules) document.fail(fmt::format("more than {} rules", kMostRules));
  for (const json& each : list) {
    rules.rules.push_back(ruleOf(each, fmt::format("rule {}", rules.rules.size() + 1)));
  }
  rules.limit = limitOf(document);
  if (document.find("sortBy")) rules.sortBy = document.oneOf<SortField>("sortBy", kSortFields);
  rules.sortAscending = document.boolean("sortAscending");
  return rules;
}

}  // namespace

std::string_view rawValue(MatchMode mode) noexcept {
  return nameOf(kModes, mode);
}
std::string_view rawValue(RuleField field) noexcept {
  return nameOf(kFields, field);
}
std::string_view rawValue(RuleOperator op) noexcept {
  return nameOf(kOperators, op);
}
std::string_view rawValue(SortField field) noexcept {
  return nameOf(kSortFields, field);
}

std::string toJSON(const SmartPlaylistRules& rules) {
  ordered_json list = ordered_json::array();
  for (const Rule& rule : rules.rules) {
    ordered_json object;
    object["id"] = rule.id;
    object["field"] = rawValue(rule.field);
    object["op"] = rawValue(rule.op);
    object["value"] = valueJSON(rule.value);
    list.push_back(std::move(object));
  }
  ordered_json document;
  document["matchMode"] = rawValue(rules.matchMode);
  document["rules"] = std::move(list);
  if (rules.limit) document["limit"] = *rules.limit;
  if (rules.sortBy) document["sortBy"] = rawValue(*rules.sortBy);
  document["sortAscending"] = rules.sortAscending;
  return document.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

Result<SmartPlaylistRules, SmartPlaylistRulesError> smartPlaylistRulesFromJSON(
    std::string_view text) {
  try {
    return rulesOf(parsed(text));
  } catch (SmartPlaylistRulesError& error) {
    return std::move(error);
  }
}

}  // namespace velorin
