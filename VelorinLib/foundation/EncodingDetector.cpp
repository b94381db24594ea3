#include "foundation/EncodingDetector.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace velorin::text {
namespace {

using Byte = unsigned char;

enum class Script { none, latin, native };

/// One character as a model reads it.
struct Unit {
  std::size_t length = 1;
  double bits = 0;
  Script script = Script::none;
  bool isUpper = false;  ///< of a letter of an alphabet
  bool isLower = false;
};

constexpr double kInvalid = 40;

bool isBetween(Byte byte, int low, int high) noexcept {
  return byte >= low && byte <= high;
}

/// The same in every model, so that only what is read differently decides.
Unit asciiUnit(Byte byte) noexcept {
  const bool lower = isBetween(byte, 'a', 'z');
  const bool upper = isBetween(byte, 'A', 'Z');
  if (lower || upper) return {1, 4.7, Script::latin, upper, lower};
  return {1, 5};
}

/// Punctuation of the Windows code pages: these places are the same in all of them.
double windowsPunctuationBits(Byte byte) noexcept {
  switch (byte) {
    case 0x85:  // ellipsis
    case 0x91:  // quotation marks
    case 0x92:
    case 0x93:
    case 0x94:
    case 0x96:  // dashes
    case 0x97:
    case 0xAB:  // guillemets
    case 0xBB:
    case 0xA0:  // no-break space
      return 9;
    default:
      return isBetween(byte, 0x80, 0x9F) ? 17 : 13;
  }
}

// Western European: what the others have to beat.

Unit westernUnit(std::string_view text, std::size_t at) noexcept {
  const auto byte = static_cast<Byte>(text[at]);
  if (byte < 0x80) return asciiUnit(byte);
  // Letters of which any language of the West has many: ä å æ ç è é ê í ñ ó ö ø ü à á ß.
  static constexpr std::string_view kCommon =
      "\xE4\xE5\xE6\xE7\xE8\xE9\xEA\xED\xF1\xF3\xF6\xF8\xFC\xE0\xE1\xDF";
  const bool isCommon = kCommon.find(static_cast<char>(byte)) != std::string_view::npos;
  if (byte >= 0xC0 && byte != 0xD7 && byte != 0xF7) {
    const bool upper = byte < 0xDF;
    return {1, isCommon ? 5.5 : upper ? 8.5 : 7.5, Script::latin, upper, !upper};
  }
  switch (byte) {
    case 0x8A:  // Š Œ Ž š œ ž Ÿ
    case 0x8C:
    case 0x8E:
    case 0x9A:
    case 0x9C:
    case 0x9E:
    case 0x9F:
      return {1, 11, Script::latin};
    case 0xA1:  // ¡ ° ´ · º ¿
    case 0xB0:
    case 0xB4:
    case 0xB7:
    case 0xBA:
    case 0xBF:
      return {1, 9};
    default:
      return {1, windowsPunctuationBits(byte)};
  }
}

// Alphabets. Frequencies of letters in running text, as bits.

/// а to я in the order of Unicode.
constexpr std::array<float, 32> kCyrillicBits = {
    3.6F, 5.9F, 4.5F, 5.9F, 5.1F, 3.6F, 6.7F, 5.9F, 3.8F, 6.4F, 4.8F, 4.5F, 5.0F, 3.9F, 3.2F, 5.2F,
    4.4F, 4.2F, 4.0F, 5.3F, 8.6F, 6.7F, 7.7F, 6.1F, 7.1F, 8.1F, 10.F, 5.7F, 5.8F, 8.2F, 7.3F, 5.7F};

/// A capital is as frequent as its letter, and each eighth letter begins a word with one.
constexpr double kCapitalBits = 2;
constexpr double kRareLetterBits = 8.5;

Unit letter(double bits, bool upper) noexcept {
  return {1, bits + (upper ? kCapitalBits : 0.2), Script::native, upper, !upper};
}

Unit windows1251Unit(std::string_view text, std::size_t at) noexcept {
  const auto byte = static_cast<Byte>(text[at]);
  if (byte < 0x80) return asciiUnit(byte);
  if (byte >= 0xC0) return letter(kCyrillicBits[byte & 0x1F], byte < 0xE0);
  // Letters of Russian, Ukrainian, Belarusian and Serbian that stand apart.
  static constexpr std::string_view kUpper = "\xA8\xAA\xAF\xB2\xA5\xA1\x80\x81\x8A\x8C\x8D\x8E\x8F";
  static constexpr std::string_view kLower = "\xB8\xBA\xBF\xB3\xB4\xA2\x90\x83\x9A\x9C\x9D\x9E\x9F";
  const auto upper = kUpper.find(static_cast<char>(byte));
  const auto lower = kLower.find(static_cast<char>(byte));
  const bool isUpper = upper != std::string_view::npos;
  if (isUpper || lower != std::string_view::npos) {
    constexpr std::size_t kOfRussianAndUkrainian = 4;
    return letter((isUpper ? upper : lower) < kOfRussianAndUkrainian ? kRareLetterBits : 12,
                  isUpper);
  }
  return {1, byte == 0x98 ? kInvalid : windowsPunctuationBits(byte)};
}

Unit koi8Unit(std::string_view text, std::size_t at) noexcept {
  const auto byte = static_cast<Byte>(text[at]);
  if (byte < 0x80) return asciiUnit(byte);
  if (byte >= 0xC0) {
    // The letters of KOI8 stand in the order of a Latin transcription.
    static constexpr std::array<Byte, 32> kOrder = {30, 0,  1,  22, 4,  5,  20, 3,  21, 8,  9,
                                                    10, 11, 12, 13, 14, 15, 31, 16, 17, 18, 19,
                                                    6,  2,  28, 27, 7,  24, 29, 25, 23, 26};
    return letter(kCyrillicBits[kOrder[byte & 0x1F]], byte >= 0xE0);
  }
  static constexpr std::string_view kUpper = "\xB3\xB4\xB6\xB7";
  static constexpr std::string_view kLower = "\xA3\xA4\xA6\xA7";
  if (kUpper.find(static_cast<char>(byte)) != std::string_view::npos) {
    return letter(kRareLetterBits, true);
  }
  if (kLower.find(static_cast<char>(byte)) != std::string_view::npos) {
    return letter(kRareLetterBits, false);
  }
  return {1, 17};
}

Unit windows1253Unit(std::string_view text, std::size_t at) noexcept {
  const auto byte = static_cast<Byte>(text[at]);
  if (byte < 0x80) return asciiUnit(byte);
  // ΐ Α to Ω, Ϊ Ϋ, then ά έ ή ί ΰ α to ω, ϊ ϋ ό ύ ώ.
  static constexpr std::array<float, 32> kLowerBits = {
      13.F, 3.3F, 7.4F, 5.9F, 5.9F, 3.9F, 8.2F, 5.2F, 6.3F, 4.1F,    4.7F,
      5.1F, 4.9F, 4.0F, 7.9F, 4.1F, 4.6F, 4.6F, 4.7F, 4.5F, 3.8F,    4.9F,
      7.0F, 6.7F, 9.6F, 6.3F, 12.F, 12.F, 6.0F, 7.0F, 7.0F, kInvalid};
  if (byte == 0xD2 || byte == 0xFF || byte == 0xAA) return {1, kInvalid};
  if (byte >= 0xE0) return letter(kLowerBits[byte & 0x1F], false);
  if (byte == 0xC0) return letter(13, false);
  if (byte >= 0xDC) return letter(byte == 0xDC || byte == 0xDF ? 5.7 : 6.2, false);
  if (byte >= 0xC1) return letter(kLowerBits[byte & 0x1F], true);
  if (byte == 0xA2 || isBetween(byte, 0xB8, 0xBA) || byte == 0xBC || byte >= 0xBE) {
    return letter(9, true);
  }
  return {1, windowsPunctuationBits(byte)};
}

// Encodings of two bytes to a character: blocks of the code table.

struct Block {
  Byte leadLow, leadHigh;
  Byte trailLow, trailHigh;
  float bits;  ///< of one character of the block
  Script script = Script::native;
};

/// The first block that holds the character counts.
template <std::size_t N>
Unit doubleByteUnit(const Block (&blocks)[N], std::string_view text, std::size_t at) noexcept {
  const auto lead = static_cast<Byte>(text[at]);
  if (lead < 0x80) return asciiUnit(lead);
  if (at + 1 < text.size()) {
    const auto trail = static_cast<Byte>(text[at + 1]);
    for (const Block& block : blocks) {
      if (isBetween(lead, block.leadLow, block.leadHigh) &&
          isBetween(trail, block.trailLow, block.trailHigh)) {
        return {2, block.bits, block.script};
      }
    }
  }
  return {1, kInvalid};
}

Unit shiftJISUnit(std::string_view text, std::size_t at) noexcept {
  static constexpr Block kBlocks[] = {
      {0x82, 0x82, 0x9F, 0xF1, 7.2F},                // hiragana
      {0x83, 0x83, 0x40, 0x96, 7.5F},                // katakana
      {0x81, 0x81, 0x5B, 0x5B, 5.5F},                // the sign of a long vowel
      {0x81, 0x81, 0x40, 0x49, 8.F, Script::none},   // punctuation
      {0x81, 0x81, 0x60, 0x7A, 8.F, Script::none},   //
      {0x81, 0x81, 0x58, 0x58, 11.F},                // the sign of a repeated character
      {0x88, 0x88, 0x9F, 0xFC, 11.5F},               // frequent kanji
      {0x89, 0x97, 0x40, 0xFC, 11.5F},               //
      {0x98, 0x98, 0x40, 0x72, 11.5F},               //
      {0x82, 0x82, 0x4F, 0x9A, 10.F},                // wide letters and digits
      {0x81, 0x81, 0x40, 0xFC, 13.F, Script::none},  // symbols
      {0x98, 0x98, 0x9F, 0xFC, 19.F},                // rare kanji
      {0x99, 0x9F, 0x40, 0xFC, 19.F},                //
      {0xE0, 0xEA, 0x40, 0xFC, 19.F},                //
      {0x83, 0x84, 0x40, 0xFC, 18.F},                // Greek, Cyrillic, lines
      {0x87, 0x87, 0x40, 0x9C, 15.F, Script::none},  // numbers in circles
      {0xED, 0xEE, 0x40, 0xFC, 20.F},                // additions of makers
      {0xFA, 0xFC, 0x40, 0xFC, 20.F},
  };
  const auto byte = static_cast<Byte>(text[at]);
  if (isBetween(byte, 0xA1, 0xDF)) return {1, 10.5, Script::native};  // narrow katakana
  return doubleByteUnit(kBlocks, text, at);
}

Unit eucJPUnit(std::string_view text, std::size_t at) noexcept {
  static constexpr Block kBlocks[] = {
      {0xA4, 0xA4, 0xA1, 0xF3, 7.2F},                // hiragana
      {0xA5, 0xA5, 0xA1, 0xF6, 7.5F},                // katakana
      {0xA1, 0xA1, 0xBC, 0xBC, 5.5F},                // the sign of a long vowel
      {0xA1, 0xA1, 0xA1, 0xAA, 8.F, Script::none},   // punctuation
      {0xA1, 0xA1, 0xC1, 0xDB, 8.F, Script::none},   //
      {0xB0, 0xCF, 0xA1, 0xFE, 11.5F},               // frequent kanji
      {0xA3, 0xA3, 0xB0, 0xFA, 10.F},                // wide letters and digits
      {0xA1, 0xA2, 0xA1, 0xFE, 13.F, Script::none},  // symbols
      {0xD0, 0xF4, 0xA1, 0xFE, 19.F},                // rare kanji
      {0x8E, 0x8E, 0xA1, 0xDF, 15.F},                // narrow katakana
      {0xA6, 0xA8, 0xA1, 0xFE, 18.F},                // Greek, Cyrillic, lines
  };
  return doubleByteUnit(kBlocks, text, at);
}

Unit gbkUnit(std::string_view text, std::size_t at) noexcept {
  static constexpr Block kBlocks[] = {
      {0xB0, 0xD7, 0xA1, 0xFE, 11.0F},               // frequent characters
      {0xA1, 0xA1, 0xA1, 0xBF, 9.5F, Script::none},  // punctuation
      {0xA3, 0xA3, 0xA1, 0xFE, 10.F, Script::none},  // wide ASCII
      {0xD8, 0xF7, 0xA1, 0xFE, 16.5F},               // rare characters
      {0xA1, 0xA2, 0xA1, 0xFE, 14.F, Script::none},  // symbols
      {0xA4, 0xA5, 0xA1, 0xF6, 15.F},                // Japanese syllables
      {0xA6, 0xA9, 0xA1, 0xFE, 18.F},                // Greek, Cyrillic, lines
      {0x81, 0xA0, 0x40, 0xFE, 19.F},                // traditional characters
      {0xA8, 0xFE, 0x40, 0xA0, 20.F},
  };
  return doubleByteUnit(kBlocks, text, at);
}

Unit big5Unit(std::string_view text, std::size_t at) noexcept {
  static constexpr Block kBlocks[] = {
      {0xA4, 0xC5, 0x40, 0x7E, 11.3F},               // frequent characters
      {0xA4, 0xC5, 0xA1, 0xFE, 11.3F},               //
      {0xC6, 0xC6, 0x40, 0x7E, 11.3F},               //
      {0xA1, 0xA1, 0x40, 0x7E, 9.5F, Script::none},  // punctuation
      {0xA1, 0xA3, 0x40, 0xFE, 13.F, Script::none},  // symbols
      {0xC9, 0xF9, 0x40, 0x7E, 18.F},                // rare characters
      {0xC9, 0xF9, 0xA1, 0xFE, 18.F},                //
      {0xC6, 0xC8, 0x40, 0xFE, 20.F},                // additions of makers
  };
  return doubleByteUnit(kBlocks, text, at);
}

Unit eucKRUnit(std::string_view text, std::size_t at) noexcept {
  static constexpr Block kBlocks[] = {
      {0xB0, 0xC8, 0xA1, 0xFE, 10.0F},               // syllables
      {0xA1, 0xA1, 0xA1, 0xBF, 11.F, Script::none},  // punctuation
      {0xA3, 0xA3, 0xA1, 0xFE, 12.F, Script::none},  // wide ASCII
      {0xA1, 0xA2, 0xA1, 0xFE, 14.F, Script::none},  // symbols
      {0xCA, 0xFD, 0xA1, 0xFE, 18.F},                // Chinese characters
      {0xA4, 0xAC, 0xA1, 0xFE, 18.F},                // single letters, other scripts
      {0x81, 0xC6, 0x41, 0x5A, 19.F},                // rare syllables, additions of Windows
      {0x81, 0xC6, 0x61, 0x7A, 19.F},                //
      {0x81, 0xC6, 0x81, 0xFE, 19.F},
  };
  return doubleByteUnit(kBlocks, text, at);
}

using Reading = Unit (*)(std::string_view, std::size_t) noexcept;

/// How many bits the text takes in this reading; no more are counted than `most`.
double bitsOf(std::string_view text, Reading reading, bool isWestern, double most) {
  constexpr double kChangeInWord = 7;  // the next letter is of another script
  constexpr double kChangeInLine = 4;
  constexpr double kCapitalBehindSmall = 6;
  constexpr double kCapitalBehindCapital = -1.5;  // a word in capitals pays for it once
  constexpr double kSecondAccent = 3;  // Western letters outside ASCII seldom stand together
  constexpr double kThirdAccent = 7;
  double bits = 0;
  Unit before;
  Script line = Script::none;
  int accents = 0;
  for (std::size_t at = 0; at < text.size() && bits < most;) {
    if (text[at] == '\n') {
      before = {};
      line = Script::none;
      accents = 0;
      ++at;
      continue;
    }
    const Unit unit = reading(text, at);
    bits += unit.bits;
    if (unit.script != Script::none) {
      if (before.script != Script::none && before.script != unit.script) bits += kChangeInWord;
      if (line != Script::none && line != unit.script) bits += kChangeInLine;
      line = unit.script;
    }
    const bool isHigh = static_cast<Byte>(text[at]) >= 0x80;
    if (isHigh && unit.isUpper && before.isLower) bits += kCapitalBehindSmall;
    if (isHigh && unit.isUpper && before.isUpper) bits += kCapitalBehindCapital;
    if (isWestern) {
      accents = isHigh ? accents + 1 : 0;
      if (accents == 2) bits += kSecondAccent;
      if (accents > 2) bits += kThirdAccent;
    }
    before = unit;
    at += unit.length;
  }
  return bits;
}

/// The lines with bytes above 127.
std::string foreignLines(std::string_view bytes) {
  constexpr std::size_t kMost = 32 * 1024;
  std::string lines;
  while (!bytes.empty() && lines.size() < kMost) {
    const std::size_t end = std::min(bytes.find_first_of("\r\n"), bytes.size());
    const std::string_view line = bytes.substr(0, end);
    if (std::any_of(line.begin(), line.end(),
                    [](char c) { return static_cast<Byte>(c) >= 0x80; })) {
      lines.append(line.substr(0, kMost)).push_back('\n');
    }
    bytes.remove_prefix(std::min(end + 1, bytes.size()));
  }
  return lines;
}

}  // namespace

std::optional<Encoding> detectLegacyEncoding(std::string_view bytes) {
  struct Candidate {
    Encoding encoding;
    Reading reading;
  };
  static constexpr Candidate kCandidates[] = {{Encoding::windows1251, windows1251Unit},
                                              {Encoding::koi8, koi8Unit},
                                              {Encoding::windows1253, windows1253Unit},
                                              {Encoding::shiftJIS, shiftJISUnit},
                                              {Encoding::eucJP, eucJPUnit},
                                              {Encoding::gbk, gbkUnit},
                                              {Encoding::big5, big5Unit},
                                              {Encoding::eucKR, eucKRUnit}};
  const std::string text = foreignLines(bytes);
  constexpr double kNoLimit = 1e300;
  const double western = bitsOf(text, westernUnit, true, kNoLimit);
  double best = western - kMarginOverWestern;
  double second = western;
  std::optional<Encoding> found;
  for (const Candidate& candidate : kCandidates) {
    const double bits = bitsOf(text, candidate.reading, false, second);
    if (bits < best) {
      second = found ? best : second;
      best = bits;
      found = candidate.encoding;
    } else {
      second = std::min(second, bits);
    }
  }
  if (!found || second - best < kMarginOverOthers) return std::nullopt;
  return found;
}

}  // namespace velorin::text
