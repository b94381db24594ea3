// The text of a CUE sheet becomes its parts.
#pragma once

#include <string>
#include <string_view>

#include "foundation/Result.h"
#include "library/cue/CueSheet.h"

namespace velorin {

/// What is wrong with a sheet.
struct CSError {
  enum class Code {
    expireUrl,   ///< of a sheet that is read by an address that is gone; never of a text
    rem,         ///< a remark above the first FILE line
    meta,        ///< another line above it
    track,       ///< a TRACK or INDEX line, or a line of a track
    file,        ///< a FILE line
    splitError,  ///< no line holds anything
    blankData,   ///< the text is empty
  };

  Code code = Code::blankData;
  std::size_t line = 0;  ///< counted from 1; 0 for the whole text

  /// "track in line 12".
  std::string text() const;
  bool operator==(const CSError&) const = default;
};

/// A sheet is lines of words. The grammar is that of the appendix "Cue Sheet Commands" of the
/// CDRWIN user's guide, taken as programs write it: lines end as they like, words are parted by
/// blanks, quotation marks may be missing, and commands that are not known are kept as they stand.
///
/// Pure; any thread.
class CueSheetParser {
 public:
  /// `text` is UTF-8.
  static Result<CueSheet, CSError> parse(std::string_view text);
};

}  // namespace velorin
