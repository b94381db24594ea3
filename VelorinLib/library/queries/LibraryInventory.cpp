#include "library/queries/LibraryInventory.h"

#include <fmt/format.h>

#include <array>
#include <charconv>

#include "library/queries/FileStamp.h"

namespace velorin {

using sqlite::Reader;

std::string libraryKey(std::string_view path, std::optional<double> cueStartTime) {
  std::string key(path);
  if (!cueStartTime) return key;
  // No number is longer in this form: the smallest has 323 zeros behind its point.
  std::array<char, 512> digits;
  const auto [end, error] =
      std::to_chars(digits.data(), digits.data() + digits.size(),
                    *cueStartTime + 0.0,  // as the database, which has no negative zero
                    std::chars_format::fixed);
  const std::string_view text(digits.data(), static_cast<std::size_t>(end - digits.data()));
  key.append("|").append(text);
  if (text.find('.') == std::string_view::npos) key += ".0";
  return key;
}

namespace {

constexpr std::string_view kStamps =
    "SELECT filePath, fileSize, lastModified FROM tracks WHERE fileSize > 0";

void tellStamp(const sqlite::Row& row, const LibraryInventory::UseStamp& use) {
  use(row.get<std::string_view>(0),
      fileStamp(row.get<std::int64_t>(1), row.get<std::optional<sqlite::TimePoint>>(2)));
}

}  // namespace

PathTable LibraryInventory::existingKeys() const {
  return _database.read([](Reader& reader) {
    PathTable keys;
    keys.reserve(reader.first<std::size_t>("SELECT COUNT(*) FROM tracks").value_or(0));
    // In the order of the index, which alone is read.
    auto tracks = reader.query(
        "SELECT id, filePath, cueStartTime FROM tracks ORDER BY filePath, cueStartTime");
    while (tracks.next()) {
      const auto path = tracks.get<std::string_view>(1);
      const auto cueStart = tracks.get<std::optional<double>>(2);
      const auto id = tracks.get<std::int64_t>(0);
      if (cueStart) {
        keys.insert(libraryKey(path, cueStart), true, id);
      } else {
        keys.insert(path, false, id);
      }
    }
    return keys;
  });
}

PathTable LibraryInventory::existingFileSizes() const {
  return _database.read([](Reader& reader) {
    PathTable sizes;
    // In the order of the table, which holds the sizes: files that were scanned together follow
    // each other.
    auto tracks = reader.query("SELECT filePath, fileSize FROM tracks WHERE fileSize > 0");
    while (tracks.next()) {
      sizes.insert(tracks.get<std::string_view>(0), false, tracks.get<std::int64_t>(1));
    }
    return sizes;
  });
}

void LibraryInventory::existingFileStamps(const UseStamp& use) const {
  _database.read([&](Reader& reader) {
    reader.each(kStamps, [&](const sqlite::Row& row) { tellStamp(row, use); });
  });
}

void LibraryInventory::existingFileStamps(const std::vector<std::string>& paths,
                                          const UseStamp& use) const {
  _database.read([&](Reader& reader) {
    sqlite::forEachSlice(paths, [&](std::span<const std::string> slice) {
      reader.each(
          fmt::format("{} AND filePath IN ({})", kStamps, sqlite::placeholders(slice.size())),
          [&](const sqlite::Row& row) { tellStamp(row, use); }, slice);
    });
  });
}

}  // namespace velorin
