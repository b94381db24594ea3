// The bytes of a CUE sheet become text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "foundation/Result.h"
#include "library/metadata/MetadataExtracting.h"

namespace velorin {

struct CueText {
  std::string text;  ///< UTF-8 without NUL

  /// For each FILE line the spellings of its name, the likeliest first: as text, and as the bytes
  /// that the sheet holds, where they are others. The sheet may have been written together with
  /// files whose names are in its encoding.
  std::vector<std::vector<std::string>> fileNames;
};

/// Sheets are a few kilobytes; what is larger than this is none.
inline constexpr std::size_t kLargestCueSheet = 4 << 20;

/// Reads a sheet: with a byte order mark UTF-16 or UTF-8, else UTF-8, else a legacy encoding that
/// the bytes speak for, else ISO Latin 1. Fails for an empty sheet, one that is too large, and
/// anything that is no file. Any thread; blocks for the disk.
Result<CueText, ExtractFailure> readCueText(const std::string& path);

/// The same for bytes that were read already. Pure.
CueText cueTextOf(std::string_view bytes);

/// The lines without white space at their ends.
std::vector<std::string_view> trimmedLines(std::string_view text);

/// True when the trimmed line begins with the word, whatever its case, and a blank.
bool isCommand(std::string_view line, std::string_view word);

/// What a line says behind its first word: the text between its first two double quotes, else its
/// second word; "" when it has neither.
std::string argumentOf(std::string_view line);

}  // namespace velorin
