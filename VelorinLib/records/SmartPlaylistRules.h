// The rules of a smart playlist, and their JSON form in the column "playlists.rulesJSON".
//
// Plain values; the functions are pure and may be called on any thread but the render thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "foundation/Result.h"

namespace velorin {

/// Must a track meet every rule, or is one enough?
enum class MatchMode { all, any };

/// What a rule looks at.
enum class RuleField {
  artist,
  album,
  title,
  genre,
  composer,
  format,
  year,
  duration,  ///< seconds
  bpm,
  energy,
  danceability,
  isVocal,
  mood,
  keySignature,
  playCount,
  lastPlayedDaysAgo,  ///< 99999 for a track that was never played
  isFavourite,
  rating,
};

/// Any operator may meet any field. The first five take a text, the next three a number, `between`
/// a range, the last two nothing: they speak of `isVocal` and `isFavourite`.
enum class RuleOperator {
  is,
  isNot,
  contains,
  startsWith,
  endsWith,
  equals,
  greaterThan,
  lessThan,
  between,
  isTrue,
  isFalse,
};

struct NumberRange {
  double lower = 0;
  double upper = 0;
  bool operator==(const NumberRange&) const = default;
};

/// An operator that is given another kind than its own takes it for "" or 0. Numbers are finite.
using RuleValue = std::variant<std::string, double, NumberRange, bool>;

enum class SortField {
  artist,
  album,
  title,
  genre,
  year,
  duration,
  bpm,
  energy,
  danceability,
  playCount,
  lastPlayed,
  rating,
  random,
};

struct SmartPlaylistRules {
  struct Rule {
    std::string id;  ///< a UUID, in upper case
    RuleField field{};
    RuleOperator op{};
    RuleValue value;

    bool operator==(const Rule&) const = default;
  };

  MatchMode matchMode = MatchMode::all;
  std::vector<Rule> rules;
  std::optional<std::int64_t> limit;  ///< below 1: no limit
  std::optional<SortField> sortBy;    ///< empty: by artist and album, in album order
  bool sortAscending = true;

  bool operator==(const SmartPlaylistRules&) const = default;
};

/// The name of the case, which is what the JSON holds.
std::string_view rawValue(MatchMode mode) noexcept;
std::string_view rawValue(RuleField field) noexcept;
std::string_view rawValue(RuleOperator op) noexcept;
std::string_view rawValue(SortField field) noexcept;

/// The JSON text on one line, keys in a fixed order:
///
///     {"matchMode":"all","rules":[{"id":"1B4E…","field":"year","op":"between",
///      "value":{"range":{"_0":1990,"_1":1999}}}],"limit":25,"sortBy":"random","sortAscending":true}
///
/// "limit" and "sortBy" are left out when absent. Text that is not UTF-8 has its ill-formed bytes
/// replaced.
std::string toJSON(const SmartPlaylistRules& rules);

/// Why a text holds no rules.
struct SmartPlaylistRulesError {
  std::string message;  ///< such as "\"op\" is missing"
  std::string place;    ///< such as "rule 2" (from 1) or "line 1, column 9"; empty: the whole text

  /// Both, on one line.
  std::string text() const { return place.empty() ? message : place + ": " + message; }
};

/// Keys beyond those above are passed over, a null counts as absent, and an id may be in lower
/// case. Texts of more than 1 MiB or with more than 500 rules are refused.
Result<SmartPlaylistRules, SmartPlaylistRulesError> smartPlaylistRulesFromJSON(
    std::string_view text);

}  // namespace velorin
