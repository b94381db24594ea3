#include "library/queries/SmartPlaylistSQL.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "library/queries/Like.h"

namespace velorin {
namespace {

using Rule = SmartPlaylistRules::Rule;

struct Column {
  const char* sql;
  bool isText;
};

Column columnOf(RuleField field) {
  switch (field) {
    case RuleField::artist:
      return {"artists.name", true};
    case RuleField::album:
      return {"albums.title", true};
    case RuleField::title:
      return {"tracks.title", true};
    case RuleField::genre:
      return {"tracks.genre", true};
    case RuleField::composer:
      return {"tracks.composer", true};
    case RuleField::format:
      return {"tracks.format", true};
    case RuleField::year:
      return {"albums.year", false};
    case RuleField::duration:
      return {"tracks.duration", false};
    case RuleField::bpm:
      return {"trackAnalysis.bpm", false};
    case RuleField::energy:
      return {"trackAnalysis.energy", false};
    case RuleField::danceability:
      return {"trackAnalysis.danceability", false};
    case RuleField::isVocal:
      return {"trackAnalysis.isVocal", false};
    case RuleField::mood:
      return {"trackAnalysis.mood", true};
    case RuleField::keySignature:
      return {"trackAnalysis.keySignature", true};
    case RuleField::playCount:
      return {"tracks.totalPlays", false};
    case RuleField::lastPlayedDaysAgo:
      return {
          "(SELECT CASE WHEN MAX(playedAt) IS NOT NULL "
          "THEN julianday('now') - julianday(MAX(playedAt)) ELSE 99999 END "
          "FROM playbackHistory WHERE trackId = tracks.id)",
          false};
    case RuleField::isFavourite:
      return {"tracks.id", false};
    case RuleField::rating:
      break;
  }
  return {"tracks.rating", false};
}

const char* orderOf(SortField field) {
  switch (field) {
    case SortField::artist:
      return "artists.name COLLATE NOCASE";
    case SortField::album:
      return "albums.title COLLATE NOCASE";
    case SortField::title:
      return "tracks.title COLLATE NOCASE";
    case SortField::genre:
      return "tracks.genre COLLATE NOCASE";
    case SortField::year:
      return "albums.year";
    case SortField::duration:
      return "tracks.duration";
    case SortField::bpm:
      return "trackAnalysis.bpm";
    case SortField::energy:
      return "trackAnalysis.energy";
    case SortField::danceability:
      return "trackAnalysis.danceability";
    case SortField::playCount:
      return "tracks.totalPlays";
    case SortField::lastPlayed:
      return "(SELECT MAX(playedAt) FROM playbackHistory WHERE trackId = tracks.id)";
    case SortField::rating:
      return "tracks.rating";
    case SortField::random:
      break;
  }
  return "RANDOM()";
}

bool needsAnalysis(const SmartPlaylistRules& rules) {
  constexpr std::string_view kTable = "trackAnalysis.";
  return std::ranges::any_of(
             rules.rules,
             [&](const Rule& rule) {
               return std::string_view(columnOf(rule.field).sql).starts_with(kTable);
             }) ||
         (rules.sortBy && std::string_view(orderOf(*rules.sortBy)).starts_with(kTable));
}

template <class Kind>
Kind valueAs(const RuleValue& value) {
  const Kind* const held = std::get_if<Kind>(&value);
  return held ? *held : Kind{};
}

/// Turns rules into conditions, and gathers what they bind.
class Conditions {
 public:
  Conditions(const SmartPlaylistRules& rules, const std::set<std::int64_t>& favouriteIds)
      : _isAny(rules.matchMode == MatchMode::any && rules.rules.size() > 1),
        _favouriteIds(favouriteIds) {
    for (const Rule& rule : rules.rules) append(rule);
  }

  /// "\nWHERE …", or nothing.
  std::string text() const {
    if (_conditions.empty()) return {};
    return fmt::format("\nWHERE {}", fmt::join(_conditions, _isAny ? " OR " : " AND "));
  }
  sqlite::Values takeArguments() { return std::move(_arguments); }

 private:
  void append(const Rule& rule) {
    switch (rule.field) {
      case RuleField::isVocal:
        _conditions.emplace_back(
            rule.op == RuleOperator::isTrue
                ? "trackAnalysis.isVocal = 1"
                : "(trackAnalysis.isVocal = 0 OR trackAnalysis.isVocal IS NULL)");
        break;
      case RuleField::isFavourite:
        appendFavourites(rule.op == RuleOperator::isTrue);
        break;
      default:
        appendComparison(rule);
    }
  }

  void appendFavourites(bool wanted) {
    if (_favouriteIds.empty()) {
      _conditions.emplace_back(wanted ? "0" : "1");
      return;
    }
    const char* const in = wanted ? "tracks.id IN (" : "tracks.id NOT IN (";
    if (_favouriteIds.size() <= sqlite::kSliceSize) {
      _conditions.push_back(in + sqlite::placeholders(_favouriteIds.size()) + ")");
      _arguments.insert(_arguments.end(), _favouriteIds.begin(), _favouriteIds.end());
    } else {
      _conditions.push_back(fmt::format("{}SELECT value FROM json_each(?))", in));
      _arguments.emplace_back(fmt::format("[{}]", fmt::join(_favouriteIds, ",")));
    }
  }

  void appendComparison(const Rule& rule) {
    switch (rule.op) {
      case RuleOperator::is:
        return appendEqualText(rule);
      case RuleOperator::isNot:
        return append(rule, " != ? COLLATE NOCASE", valueAs<std::string>(rule.value));
      case RuleOperator::contains:
        return appendLike(rule, " LIKE '%' || ? || '%' ESCAPE '\\' COLLATE NOCASE");
      case RuleOperator::startsWith:
        return appendLike(rule, " LIKE ? || '%' ESCAPE '\\' COLLATE NOCASE");
      case RuleOperator::endsWith:
        return appendLike(rule, " LIKE '%' || ? ESCAPE '\\' COLLATE NOCASE");
      case RuleOperator::equals:
        return append(rule, " = ?", valueAs<double>(rule.value));
      case RuleOperator::greaterThan:
        return append(rule, " > ?", valueAs<double>(rule.value));
      case RuleOperator::lessThan:
        return append(rule, " < ?", valueAs<double>(rule.value));
      case RuleOperator::between: {
        const auto range = valueAs<NumberRange>(rule.value);
        append(rule, " BETWEEN ? AND ?", range.lower);
        _arguments.emplace_back(range.upper);
        return;
      }
      case RuleOperator::isTrue:
      case RuleOperator::isFalse:
        return;
    }
  }

  void append(const Rule& rule, const char* comparison, sqlite::Value value) {
    _conditions.push_back(fmt::format("{}{}", columnOf(rule.field).sql, comparison));
    _arguments.push_back(std::move(value));
  }

  void appendEqualText(const Rule& rule) {
    append(rule, " = ? COLLATE NOCASE", valueAs<std::string>(rule.value));
    // SQLite makes one IN of several equalities of a column, and forgets the COLLATE on their
    // right sides (so does 3.40). The plus keeps them apart. A number needs its column's affinity,
    // which the plus would take away, and no collation.
    if (_isAny && columnOf(rule.field).isText) _conditions.back().insert(0, "+");
  }

  void appendLike(const Rule& rule, const char* comparison) {
    const auto text = valueAs<std::string>(rule.value);
    // SQLite would cut a pattern off at a NUL, and refuses one that is very long; no name holds
    // such a text.
    if (!likeAnywhere(text)) {
      _conditions.emplace_back("0");
      return;
    }
    append(rule, comparison, escapedForLike(text));
  }

  const bool _isAny;
  const std::set<std::int64_t>& _favouriteIds;
  std::vector<std::string> _conditions;
  sqlite::Values _arguments;
};

std::string orderText(const SmartPlaylistRules& rules) {
  if (!rules.sortBy) {
    return "\nORDER BY artists.name COLLATE NOCASE, albums.year, albums.title COLLATE NOCASE, "
           "tracks.discNumber, tracks.trackNumber";
  }
  const char* const direction = *rules.sortBy == SortField::random ? ""
                                : rules.sortAscending              ? " ASC"
                                                                   : " DESC";
  return fmt::format("\nORDER BY {}{}", orderOf(*rules.sortBy), direction);
}

}  // namespace

SqlFragment smartPlaylistSQL(const SmartPlaylistRules& rules,
                             const std::set<std::int64_t>& favouriteIds) {
  Conditions conditions(rules, favouriteIds);
  SqlFragment statement;
  statement.text =
      "SELECT tracks.id\nFROM tracks\nJOIN albums ON albums.id = tracks.albumId\n"
      "JOIN artists ON artists.id = tracks.artistId";
  if (needsAnalysis(rules)) {
    statement.text += "\nLEFT JOIN trackAnalysis ON trackAnalysis.trackId = tracks.id";
  }
  statement.text += conditions.text() + orderText(rules);
  if (rules.limit && *rules.limit >= 1) statement.text += fmt::format("\nLIMIT {}", *rules.limit);
  statement.arguments = conditions.takeArguments();
  return statement;
}

}  // namespace velorin
