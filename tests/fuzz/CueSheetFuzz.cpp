// Any bytes are a CUE sheet or none; all texts of one are UTF-8 without NUL, and no time is
// negative.

#include <cstdlib>

#include "foundation/Text.h"
#include "library/cue/CueSheetParser.h"
#include "library/cue/CueText.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

template <class Map>
void requireText(const Map& map) {
  for (const auto& [key, value] : map) {
    require(velorin::text::validUTF8(key.text) && velorin::text::validUTF8(value));
    require(value.find('\0') == std::string::npos);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const auto text = velorin::cueTextOf({reinterpret_cast<const char*>(data), size});
  require(velorin::text::validUTF8(text.text) && text.text.find('\0') == std::string::npos);
  for (const auto& spellings : text.fileNames) require(!spellings.empty());
  const auto sheet = velorin::CueSheetParser::parse(text.text);
  if (!sheet) return 0;
  requireText(sheet->meta);
  requireText(sheet->rem);
  for (const auto& file : sheet->file) {
    require(velorin::text::validUTF8(file.fileName));
    for (const auto& track : file.tracks) {
      requireText(track.meta);
      requireText(track.rem);
      require(track.start().frames >= 0);
    }
  }
  return 0;
}
