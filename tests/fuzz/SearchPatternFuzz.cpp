// Any bytes may be searched for, and what the quick way finds is what FTS5 finds.

#include <cstdlib>

#include "library/TestLibrary.h"
#include "library/queries/LibrarySearch.h"

namespace {

velorin::test::TestLibrary& library() {
  static velorin::test::TestLibrary& filled = []() -> velorin::test::TestLibrary& {
    static velorin::test::TestLibrary library;
    for (const char* title : {"Love and Loving", "Été à l’ombre", "Группа крови", "丸の内", "تملي",
                              "a ab abc a1", "\xc3 \xff broken", "🎵 don’t e\xcc\x81", ""}) {
      library.add({.title = title, .artist = "Artist ", .album = std::string("The ") + title});
    }
    return library;
  }();
  return filled;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  using namespace velorin;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  static LibrarySearch search(library().database());
  std::vector<std::int64_t> found;
  for (const TrackInfo& track : search.searchTracks(text)) found.push_back(*track.track.id);
  search.searchArtists(text);
  const SearchPattern pattern(text);
  std::vector<std::int64_t> told;
  if (!pattern.isEmpty()) {
    told = library().column<std::int64_t>(
        "SELECT rowid FROM tracks_fts WHERE tracks_fts MATCH ? ORDER BY rank", pattern.match());
  }
  if (found != told) std::abort();
  return 0;
}
