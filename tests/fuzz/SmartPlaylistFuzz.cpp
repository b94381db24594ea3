// Any bytes may stand where the rules of a smart playlist are stored; what is taken for rules comes
// back as it was, and makes a statement that the library can run.
#include <cstdlib>

#include "library/TestLibrary.h"
#include "library/queries/SmartPlaylists.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  using namespace velorin;
  static const test::TestLibrary library;
  const auto rules =
      smartPlaylistRulesFromJSON(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!rules) {
    if (rules.error().message.empty()) std::abort();
    return 0;
  }
  const auto again = smartPlaylistRulesFromJSON(toJSON(rules.value()));
  if (!again || again.value() != rules.value()) std::abort();
  const SmartPlaylists playlists(library.database());
  if (!playlists.fetchSmartPlaylistTracks(rules.value(), {1, 2}).empty()) std::abort();
  return 0;
}
