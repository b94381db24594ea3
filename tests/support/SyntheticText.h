// Made-up names: the same for the same random numbers, spread as the words of real libraries are.
#pragma once

#include <cstdint>
#include <string>

namespace velorin::test {

/// splitmix64: the same numbers on every machine, and good ones from any seed.
class Random {
 public:
  explicit Random(std::uint64_t seed) noexcept : _state(seed) {}

  std::uint64_t next() noexcept;
  /// From 0 to below 1.
  double unit() noexcept { return static_cast<double>(next() >> 11) * 0x1p-53; }
  /// From 0 to below n.
  std::size_t below(std::size_t n) noexcept { return next() % n; }
  bool chance(double probability) noexcept { return unit() < probability; }
  /// A rank from 0 to below n, rank r with a weight of 1 / (r + 1) as words have by Zipf's law.
  std::size_t zipf(std::size_t n) noexcept;
  /// Above 0, with this mean; small values most often.
  double exponential(double mean) noexcept;

 private:
  std::uint64_t _state;
};

/// latinMarked: letters followed by combining marks. latinEmoji: words with an emoji behind.
enum class Script { latin, cyrillic, japanese, arabic, latinMarked, latinEmoji };

/// Latin nearly always.
Script someScript(Random& random) noexcept;

/// So many words of the script's vocabulary, frequent words more often.
std::string someWords(Random& random, Script script, std::size_t count);

/// "First Last", "The Words", "One & Two" …
std::string someArtistName(Random& random, Script script);

/// One to five words; now and then "Intro", "Untitled" or a version in brackets.
std::string someTitle(Random& random, Script script);

/// Lines of words, of this many bytes and a few more.
std::string someVerses(Random& random, std::size_t bytes);

/// A genre out of 40, the first ones most often.
std::string someGenre(Random& random);

/// The name as another tagger would have written it: all small or all capital letters.
std::string otherCase(Random& random, std::string name);

}  // namespace velorin::test
