#include "support/SyntheticText.h"

#include <array>
#include <cmath>
#include <span>

namespace velorin::test {
namespace {

constexpr std::size_t kVocabulary = 12'000;

constexpr std::array kCommonWords = {
    "the",  "of",   "love", "in",    "you",  "and",   "to",    "a",    "my",    "me",   "night",
    "on",   "no",   "time", "for",   "is",   "all",   "it",    "live", "day",   "blue", "be",
    "song", "life", "away", "from",  "down", "one",   "heart", "man",  "world", "baby", "little",
    "home", "sun",  "rain", "dance", "with", "black", "river", "fire", "light", "moon", "road"};
constexpr std::array kLatin = {"ba",  "be", "bri", "ca",  "cor", "da",  "del", "do", "el",  "fa",
                               "fen", "ga", "gri", "ha",  "hol", "in",  "ja",  "ka", "kel", "la",
                               "lin", "lo", "ma",  "mer", "mi",  "na",  "nor", "o",  "pa",  "per",
                               "qui", "ra", "ren", "ro",  "sa",  "sha", "sto", "ta", "ter", "ti",
                               "tu",  "u",  "va",  "ver", "wa",  "wen", "xi",  "ya", "yo",  "zen"};
constexpr std::array kCyrillic = {"ба", "во", "го", "да", "ду", "же", "за", "ка", "ко", "ле",
                                  "лю", "ма", "ми", "на", "но", "о",  "пе", "ра", "ро", "со",
                                  "та", "ти", "у",  "хо", "че", "ша", "ын", "эл", "ют", "яр"};
constexpr std::array kJapanese = {"あ", "い", "う", "か", "き", "く", "さ", "し", "の", "は",
                                  "ひ", "ま", "み", "ら", "り", "ア", "イ", "ク", "ス", "ト",
                                  "ン", "夜", "花", "月", "空", "海", "雨", "風", "夢", "星"};
constexpr std::array kArabic = {"ال", "با", "حب", "دا", "را", "سا", "شم", "صو", "عي",  "في",
                                "قل", "كا", "لي", "ما", "نو", "ها", "وا", "يا", "ليل", "قمر"};
constexpr std::array kMarked = {"a\u0301", "e\u0301", "o\u0308", "u\u0308", "n\u0303",  "c\u0327",
                                "ra",      "lo",      "mi",      "ta",      "se\u0302", "vi\u030c"};
constexpr std::array kEmoji = {"🎵", "❤️", "🔥", "🌙", "👩‍🎤", "🇧🇷"};
constexpr std::array kGenres = {
    "Rock",       "Pop",         "Jazz",        "Classical",   "Electronic",  "Hip-Hop",
    "Folk",       "Metal",       "Soundtrack",  "Blues",       "Country",     "Soul",
    "Ambient",    "Reggae",      "Indie Rock",  "Punk",        "House",       "R&B",
    "Techno",     "World",       "Funk",        "Alternative", "Trance",      "Latin",
    "Opera",      "Disco",       "Gospel",      "Ska",         "Drum & Bass", "Chanson",
    "Bossa Nova", "Dub",         "Krautrock",   "New Wave",    "Шансон",      "Musique concrète",
    "演歌",       "Spoken Word", "Hip Hop/Rap", "Post-Rock"};

std::span<const char* const> syllablesOf(Script script) {
  switch (script) {
    case Script::cyrillic:
      return kCyrillic;
    case Script::japanese:
      return kJapanese;
    case Script::arabic:
      return kArabic;
    case Script::latinMarked:
      return kMarked;
    case Script::latin:
    case Script::latinEmoji:
      break;
  }
  return kLatin;
}

void capitalise(std::string& word) {
  if (word[0] >= 'a' && word[0] <= 'z') word[0] = static_cast<char>(word[0] - 'a' + 'A');
}

/// The word of a rank: the same each time, longer when it is rare.
std::string wordOf(Script script, std::size_t rank) {
  if (script == Script::latin && rank < kCommonWords.size()) return kCommonWords[rank];
  const auto syllables = syllablesOf(script);
  Random random(rank * 31 + static_cast<std::size_t>(script));
  const std::size_t count = 1 + random.below(2) + (rank > 100 ? 1 : 0) + (rank > 4000 ? 1 : 0);
  std::string word;
  for (std::size_t i = 0; i < count; ++i) word += syllables[random.below(syllables.size())];
  return word;
}

}  // namespace

std::uint64_t Random::next() noexcept {
  _state += 0x9E3779B97F4A7C15;
  std::uint64_t z = _state;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
  return z ^ (z >> 31);
}

std::size_t Random::zipf(std::size_t n) noexcept {
  return static_cast<std::size_t>(std::pow(static_cast<double>(n), unit())) - 1;
}

double Random::exponential(double mean) noexcept {
  return -mean * std::log(1 - unit());
}

Script someScript(Random& random) noexcept {
  const double at = random.unit();
  if (at < 0.93) return Script::latin;
  if (at < 0.95) return Script::cyrillic;
  if (at < 0.97) return Script::japanese;
  if (at < 0.98) return Script::arabic;
  return at < 0.995 ? Script::latinMarked : Script::latinEmoji;
}

std::string someWords(Random& random, Script script, std::size_t count) {
  // Titles have fewer of the most frequent words than sentences do.
  constexpr std::size_t kFlat = 8;
  std::string words;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t rank = random.zipf(kVocabulary) + random.below(kFlat);
    std::string word = wordOf(script, rank);
    capitalise(word);
    if (i > 0 && script != Script::japanese) words += ' ';
    words += word;
  }
  if (script == Script::latinEmoji) words += std::string(" ") + kEmoji[random.below(kEmoji.size())];
  return words;
}

std::string someArtistName(Random& random, Script script) {
  // Rare words: two artists seldom share a name.
  const auto rare = [&] {
    std::string word = wordOf(script, 200 + random.below(60'000));
    capitalise(word);
    return word;
  };
  const double form = random.unit();
  if (script == Script::japanese) return rare();
  if (form < 0.5) return rare() + " " + rare();
  if (form < 0.7 && script == Script::latin) return "The " + rare() + "s";
  if (form < 0.85) return rare();
  return rare() + (form < 0.93 ? " & " : " feat. ") + rare() + " " + rare();
}

std::string someTitle(Random& random, Script script) {
  static constexpr std::array kUsual = {"Intro", "Untitled", "Interlude", "Outro", "Track 1"};
  static constexpr std::array kVersions = {" (Live)", " (Remastered)", " - Edit", " [Demo]",
                                           " (feat. Ana)"};
  if (random.chance(0.02)) return kUsual[random.below(kUsual.size())];
  std::string title = someWords(random, script, 1 + random.below(3) + random.below(3));
  if (random.chance(0.08)) title += kVersions[random.below(kVersions.size())];
  return title;
}

std::string someVerses(Random& random, std::size_t bytes) {
  std::string verses;
  while (verses.size() < bytes) {
    verses += someWords(random, Script::latin, 6);
    verses += '\n';
  }
  return verses;
}

std::string someGenre(Random& random) {
  return kGenres[random.zipf(kGenres.size())];
}

std::string otherCase(Random& random, std::string name) {
  const bool capitals = random.chance(0.5);
  for (char& c : name) {
    if (capitals && c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    if (!capitals && c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return name;
}

}  // namespace velorin::test
