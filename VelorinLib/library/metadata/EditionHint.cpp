#include <algorithm>
#include <array>

#include "foundation/Text.h"
#include "foundation/Unicode.h"
#include "library/metadata/FolderHints.h"
#include "library/metadata/NameText.h"

namespace velorin {
namespace {

// In the order of their bytes.
constexpr std::array<std::string_view, 43> kEditionWords = {
    "acoustic",   "american",     "anniversary",   "australian",  "bonus",    "chilean",
    "clean",      "collector",    "collectors",    "compilation", "deluxe",   "demo",
    "demos",      "disc",         "edition",       "ep",          "european", "expanded",
    "explicit",   "instrumental", "instrumentals", "japan",       "japanese", "limited",
    "live",       "maxi",         "mono",          "promo",       "reissue",  "remaster",
    "remastered", "remix",        "remixed",       "remixes",     "russian",  "sampler",
    "single",     "special",      "stereo",        "tour",        "uk",       "version",
    "vinyl"};

/// True when a word of the lower-case text, letters and digits on end, speaks of an edition.
bool hasEditionWord(std::string_view lowercase) {
  std::size_t begin = 0;
  for (std::size_t i = 0; i <= lowercase.size();) {
    const text::CodePoint point = text::decode(lowercase, i);
    if (i < lowercase.size() && unicode::isAlphanumeric(point.value)) {
      i += point.length;
      continue;
    }
    if (std::ranges::binary_search(kEditionWords, lowercase.substr(begin, i - begin))) return true;
    i += std::max<std::size_t>(1, point.length);
    begin = i;
  }
  return false;
}

}  // namespace

std::optional<std::string> editionHint(std::string_view folder, std::string_view albumTitle) {
  const std::string name = text::toValidUTF8(folder);
  const std::string_view whole = name;
  std::string title;  // in lower case once it is needed
  std::size_t at = 0;
  // Each match of [\[\(]([^\]\)]+)[\]\)].
  while ((at = whole.find_first_of("[(", at)) != std::string_view::npos) {
    const std::size_t close = whole.find_first_of("])", at + 1);
    if (close == std::string_view::npos) break;
    const auto inner = text::trimWhitespaceAndNewlines(whole.substr(at + 1, close - at - 1));
    at = close + 1;
    if (inner.empty()) continue;
    const std::string lowercase = unicode::lowercased(inner);
    if (!hasEditionWord(lowercase)) continue;
    if (title.empty()) title = unicode::lowercased(albumTitle);
    if (title.find(lowercase) == std::string::npos) return std::string(inner);
  }
  return std::nullopt;
}

}  // namespace velorin
