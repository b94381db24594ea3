// What the log calls the formats of files, by a file's extension.
#pragma once

#include <string>
#include <string_view>

namespace velorin {

struct FormatNames {
  std::string_view inErrors;   ///< "FLAC ", "Opus " … before "file"; empty where it has no name
  std::string_view preOpened;  ///< "FLAC" …, "track"
  std::string_view cueSeek;    ///< "FLAC", "WV" …
};

/// Any thread. The letter case of the extension does not matter.
const FormatNames& formatNamesOf(const std::string& path);

/// One-bit audio: "dsf" and "dff".
bool isDSDFile(const std::string& path);

}  // namespace velorin
