// What a folder's name says of the recording's form. Each rule below stands for the regular
// expression beside it; by hand, they take linear time on any name and no stack.
#include <array>
#include <span>

#include "foundation/Text.h"
#include "library/metadata/FolderHints.h"
#include "library/metadata/NameText.h"

namespace velorin {
namespace {

using namespace nametext;

constexpr std::size_t kNoMatch = std::string_view::npos;

/// Where a match that begins at the position ends, or kNoMatch.
using Matcher = std::size_t (*)(std::string_view text, std::size_t at);

/// \b(one|of|the|words)\b
std::size_t matchWords(std::string_view text, std::size_t at,
                       std::span<const std::string_view> words) {
  for (const std::string_view word : words) {
    if (matchesIgnoringCase(text, at, word) && wordMayBegin(text, at) &&
        wordMayEnd(text, at + word.size())) {
      return at + word.size();
    }
  }
  return kNoMatch;
}

std::size_t matchUnit(std::string_view text, std::size_t number, std::size_t digitsEnd,
                      std::string_view unit) {
  const std::size_t at = skipWhitespace(text, digitsEnd);
  if (!matchesIgnoringCase(text, at, unit) || !wordMayBegin(text, number) ||
      !wordMayEnd(text, at + unit.size())) {
    return kNoMatch;
  }
  return at + unit.size();
}

/// A number of that many digits before a unit. A word begins at a number's first digit only, so
/// that a longer number cannot match from its middle.
std::size_t matchNumber(std::string_view text, std::size_t at, std::size_t fewest, std::size_t most,
                        std::string_view unit) {
  if (!isDigit(text[at]) || (at > 0 && isDigit(text[at - 1]))) return kNoMatch;
  const std::size_t end = skipDigits(text, at);
  if (end - at < fewest || end - at > most) return kNoMatch;
  return matchUnit(text, at, end, unit);
}

/// \b\d{2,3}[,.]?\d*\s*k[Hh]z\b
std::size_t matchRate(std::string_view text, std::size_t at) {
  if (!isDigit(text[at]) || (at > 0 && isDigit(text[at - 1]))) return kNoMatch;
  std::size_t end = skipDigits(text, at);
  if (end - at < 2) return kNoMatch;
  const bool hasPoint = end < text.size() && (text[end] == ',' || text[end] == '.');
  if (hasPoint && end - at <= 3) end = skipDigits(text, end + 1);
  return matchUnit(text, at, end, "khz");
}

/// [\(\[]\s*[\)\]]
std::size_t matchEmptyBrackets(std::string_view text, std::size_t at) {
  if (text[at] != '(' && text[at] != '[') return kNoMatch;
  const std::size_t end = skipWhitespace(text, at + 1);
  return end < text.size() && (text[end] == ')' || text[end] == ']') ? end + 1 : kNoMatch;
}

template <const auto& kWords>
std::size_t matchOneOf(std::string_view text, std::size_t at) {
  return matchWords(text, at, kWords);
}

using Word = std::array<std::string_view, 1>;
constexpr Word kFlac = {"flac"};
constexpr Word kWav = {"wav"};
constexpr Word kMp3 = {"mp3"};
constexpr Word kAac = {"aac"};
constexpr Word kApe = {"ape"};
constexpr std::array<std::string_view, 3> kHiRes = {"hi-res", "hires", "hi res"};
constexpr std::array<std::string_view, 6> kMedia = {"cd",    "vinyl", "bluray",
                                                    "bdrip", "web",   "itunes"};
constexpr std::array<std::string_view, 5> kShops = {"hdtracks", "qobuz", "tidal", "deezer",
                                                    "amazon"};

// Each works on what the ones before have left.
constexpr std::array<Matcher, 12> kRules = {
    matchOneOf<kFlac>,
    matchOneOf<kWav>,
    matchOneOf<kMp3>,
    matchOneOf<kAac>,
    matchOneOf<kApe>,
    matchOneOf<kHiRes>,
    // \b\d{1,3}\s*bit\b
    [](std::string_view text, std::size_t at) { return matchNumber(text, at, 1, 3, "bit"); },
    matchRate,
    // \b\d{2,4}\s*kbps\b
    [](std::string_view text, std::size_t at) { return matchNumber(text, at, 2, 4, "kbps"); },
    matchOneOf<kMedia>,
    matchOneOf<kShops>,
    matchEmptyBrackets,
};

/// Removes every match, left to right.
std::string without(std::string_view text, Matcher matcher) {
  std::string rest;
  rest.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t end = matcher(text, i);
    if (end != kNoMatch) {
      i = end;
    } else {
      rest += text[i++];
    }
  }
  return rest;
}

/// Runs of two and more white spaces become one blank.
std::string collapsed(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t end = skipWhitespace(text, i);
    const std::size_t one = text::decode(text, i).length;
    if (end > i + one) {
      result += ' ';
      i = end;
    } else {
      result += text.substr(i, one);
      i += one;
    }
  }
  return result;
}

std::string_view trimmed(std::string_view text) {
  while (true) {
    const std::size_t before = text.size();
    text = text::trimWhitespaceAndNewlines(text);
    if (text.starts_with('-') || text.starts_with('_')) text.remove_prefix(1);
    if (text.ends_with('-') || text.ends_with('_')) text.remove_suffix(1);
    if (text.size() == before) return text;
  }
}

}  // namespace

std::string stripTechnicalTags(std::string_view name) {
  std::string rest = text::toValidUTF8(name);
  for (const Matcher matcher : kRules) rest = without(rest, matcher);
  return std::string(trimmed(collapsed(rest)));
}

}  // namespace velorin
