#include "library/queries/Pins.h"

#include "library/rows/PinnedItemRow.h"

namespace velorin {
namespace {

const std::string kPins = "SELECT " + rows::kPinnedItemColumns + "\nFROM pinnedItems\n";

template <class... Arguments>
std::vector<PinnedItem> pins(sqlite::Reader& reader, std::string_view tail,
                             const Arguments&... arguments) {
  std::vector<PinnedItem> found;
  reader.each(
      kPins + std::string(tail),
      [&](const sqlite::Row& row) {
        sqlite::RowReader columns(row);
        columns >> found.emplace_back();
      },
      arguments...);
  return found;
}

}  // namespace

std::vector<PinnedItem> Pins::fetchPins() const {
  return _database.read([](sqlite::Reader& reader) {
    return pins(reader, "ORDER BY pinnedItems.position, pinnedItems.id");
  });
}

PinnedItem Pins::pin(PinnedItemType type, std::string_view referenceId, TimePoint now) {
  const std::string_view typeText = rawValue(type);
  return _database.write([&](sqlite::Writer& writer) {
    const auto standing = [&] {
      return pins(writer, "WHERE type = ? AND referenceId = ?", typeText, referenceId);
    };
    if (const auto found = standing(); !found.empty()) return found.front();
    writer.run(R"(
INSERT INTO pinnedItems (type, referenceId, position, createdAt)
VALUES (?, ?, (SELECT COALESCE(MAX(position) + 1, 0) FROM pinnedItems), ?))",
               typeText, referenceId, now);
    return standing().at(0);
  });
}

void Pins::unpin(PinnedItemType type, std::string_view referenceId) {
  _database.write([&](sqlite::Writer& writer) {
    writer.run("DELETE FROM pinnedItems WHERE type = ? AND referenceId = ?", rawValue(type),
               referenceId);
  });
}

}  // namespace velorin
