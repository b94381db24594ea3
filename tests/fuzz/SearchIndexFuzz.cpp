// An index of any content is searched or refused. An input is a list of changes to it, four bytes
// each: which block, where in it (two bytes), the new byte.

#include "library/TestLibrary.h"
#include "library/search/FtsSegments.h"
#include "library/search/PrefixMatches.h"

namespace {

using namespace velorin;

struct Indexed {
  Indexed() {
    library.run("INSERT INTO tracks_fts(tracks_fts, rank) VALUES ('pgsz', 64)");
    for (int i = 0; i < 60; ++i) {
      library.add(
          {.title = i % 2 == 0 ? "love a la la" : "lover ab la", .path = "/" + std::to_string(i)});
      if (i % 7 == 0) library.run("DELETE FROM tracks_fts WHERE rowid = ?", i / 2);
    }
    library.queue().read([&](sqlite::Reader& reader) {
      sizes.emplace(RowSizes::read(reader));
      reader.each("SELECT id, block FROM tracks_fts_data", [&](const sqlite::Row& row) {
        blocks.emplace_back(row.get<std::int64_t>(0), row.get<sqlite::Blob>(1));
      });
    });
  }

  test::TestLibrary library;
  std::optional<RowSizes> sizes;
  std::vector<std::pair<std::int64_t, sqlite::Blob>> blocks;
};

struct RollBack {};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static Indexed indexed;
  auto blocks = indexed.blocks;
  for (std::size_t at = 0; at + 4 <= size; at += 4) {
    sqlite::Blob& block = blocks[data[at] % blocks.size()].second;
    if (block.empty()) continue;
    block[(data[at + 1] << 8 | data[at + 2]) % block.size()] = std::byte{data[at + 3]};
  }
  try {
    indexed.library.queue().write([&](sqlite::Writer& writer) {
      for (std::size_t i = 0; i < blocks.size(); ++i) {
        if (blocks[i].second == indexed.blocks[i].second) continue;
        writer.run("UPDATE tracks_fts_data SET block = ? WHERE id = ?", blocks[i].second,
                   blocks[i].first);
      }
      for (const auto& prefixes : {std::vector<std::string>{"l"}, {"love", "a"}}) {
        try {
          matchesOfPrefixes(writer, *indexed.sizes, prefixes);
        } catch (const UnknownFtsFormat&) {
        }
      }
      throw RollBack();
    });
  } catch (const RollBack&) {
  }
  return 0;
}
