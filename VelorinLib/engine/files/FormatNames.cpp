#include "engine/files/FormatNames.h"

#include <algorithm>
#include <array>

#include "foundation/Text.h"

namespace velorin {
namespace {

struct Named {
  std::string_view extension;
  FormatNames names;
};

constexpr std::array kNamed = {
    Named{"flac", {"FLAC ", "FLAC", "FLAC"}},   Named{"ape", {"APE ", "APE", "APE"}},
    Named{"wv", {"WavPack ", "WavPack", "WV"}}, Named{"opus", {"Opus ", "Opus", "Opus"}},
    Named{"dsf", {"DSD ", "DSD", "DSD"}},       Named{"dff", {"DSD ", "DSD", "DSD"}},
};
constexpr FormatNames kOther = {"", "track", "ExtAudioFile"};

}  // namespace

const FormatNames& formatNamesOf(const std::string& path) {
  const auto* const found = std::ranges::find(kNamed, text::fileExtension(path), &Named::extension);
  return found == kNamed.end() ? kOther : found->names;
}

bool isDSDFile(const std::string& path) {
  return formatNamesOf(path).preOpened == "DSD";
}

}  // namespace velorin
