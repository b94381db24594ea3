#include "library/queries/FolderBrowser.h"

#include <array>

#include "foundation/Text.h"
#include "library/queries/PathPrefix.h"
#include "library/rows/TrackInfos.h"

namespace velorin {
namespace {

using sqlite::Reader;

constexpr std::array<std::string_view, 5> kHiddenFolders = {
    "#recycle", "#snapshot", "@eaDir", "$RECYCLE.BIN", "System Volume Information"};

/// Calls onFile(id, path) for each track directly inside, and onFolder(name, prefix) for each
/// folder, in the order of the index. The tracks below a folder stand next to each other there, so
/// the walk leaps over them: it costs what is seen, not what lies below.
template <class OnFile, class OnFolder>
void walk(Reader& reader, const PathPrefix& folder, OnFile&& onFile, OnFolder&& onFolder) {
  const std::size_t nameStart = folder.begin().size();
  std::string from = folder.begin();
  for (bool leapt = true; leapt;) {
    leapt = false;
    auto tracks = reader.query(R"(
SELECT id, filePath FROM tracks
WHERE filePath >= ? AND filePath < ?
ORDER BY filePath, cueStartTime, id)",
                               from, folder.end());
    while (!leapt && tracks.next()) {
      const auto path = tracks.get<std::string_view>(1);
      const std::size_t slash = path.find('/', nameStart);
      if (slash == std::string_view::npos) {
        onFile(tracks.get<std::int64_t>(0), path);
        continue;
      }
      const PathPrefix inside(path.substr(0, slash + 1));
      onFolder(std::string(path.substr(nameStart, slash - nameStart)), inside);
      from = inside.end();
      leapt = true;
    }
  }
}

/// Sorts by a text without regard to the case of A to Z; equal texts keep their order.
template <class T, class TextOf>
void sortWithoutCase(std::vector<T>& items, TextOf&& textOf) {
  std::stable_sort(items.begin(), items.end(), [&](const T& a, const T& b) {
    return text::lowercaseASCII(textOf(a)) < text::lowercaseASCII(textOf(b));
  });
}

std::vector<std::int64_t> allTracks(Reader& reader, const PathPrefix& folder, std::int64_t limit,
                                    std::int64_t offset) {
  return reader.column<std::int64_t>(R"(
SELECT id FROM tracks
WHERE filePath > ? AND filePath < ?
ORDER BY filePath COLLATE NOCASE, filePath, cueStartTime, id
LIMIT ? OFFSET ?)",
                                     folder.begin(), folder.end(), limit, offset);
}

std::vector<std::int64_t> directTracks(Reader& reader, const PathPrefix& folder) {
  std::vector<std::pair<std::string, std::int64_t>> found;
  walk(
      reader, folder, [&](std::int64_t id, std::string_view path) { found.emplace_back(path, id); },
      [](const std::string&, const PathPrefix&) {});
  sortWithoutCase(found, [](const auto& track) -> std::string_view { return track.first; });
  std::vector<std::int64_t> ids;
  for (const auto& track : found) ids.push_back(track.second);
  return ids;
}

// Up to here a statement that keeps only the best rows while it sorts is quicker than the whole
// order, which then serves every later page.
constexpr std::int64_t kPlainRows = 2000;

}  // namespace

FolderSummary FolderBrowser::folderSummary(const std::string& folder) const {
  const PathPrefix prefix(folder);
  return _database.read([&](Reader& reader) {
    auto totals = reader.query(R"(
SELECT COUNT(*), COALESCE(SUM(duration), 0) FROM tracks
WHERE filePath > ? AND filePath < ?)",
                               prefix.begin(), prefix.end());
    totals.next();
    return FolderSummary{totals.get<std::int64_t>(0), totals.get<double>(1)};
  });
}

std::vector<Subfolder> FolderBrowser::subfolders(const std::string& folder) const {
  return _database.read([&](Reader& reader) {
    std::vector<Subfolder> found;
    const auto add = [&](std::string name, const PathPrefix& inside) {
      if (std::find(kHiddenFolders.begin(), kHiddenFolders.end(), name) != kHiddenFolders.end()) {
        return;
      }
      const auto count = reader.first<std::int64_t>(
          "SELECT COUNT(*) FROM tracks WHERE filePath >= ? AND filePath < ?", inside.begin(),
          inside.end());
      found.push_back({std::move(name), inside.begin(), count.value_or(0)});
    };
    walk(
        reader, PathPrefix(folder), [](std::int64_t, std::string_view) {}, add);
    sortWithoutCase(found,
                    [](const Subfolder& each) -> std::string_view { return each.folderName; });
    return found;
  });
}

std::vector<TrackInfo> FolderBrowser::fetchFolderTracks(const std::string& folder, bool recursive,
                                                        std::int64_t limit, std::int64_t offset) {
  const auto queue = _database.dbQueue();
  if (!queue) return {};
  const PathPrefix prefix(folder);
  return queue->read([&](Reader& reader) {
    const auto page = [&](const std::vector<std::int64_t>& ids) {
      const auto rows = pageOf(ids, limit, offset);
      return rows::trackInfosInOrder(reader, {rows.begin(), rows.end()});
    };
    if (!recursive) return page(directTracks(reader, prefix));
    if (limit < 0 || limit <= kPlainRows - std::max<std::int64_t>(offset, 0)) {
      return rows::trackInfosInOrder(reader, allTracks(reader, prefix, limit, offset));
    }
    const auto version = queue->version(reader, static_cast<unsigned>(Facet::library));
    return page(*_orders.get(queue, version, prefix.begin(),
                             [&] { return allTracks(reader, prefix, -1, 0); }));
  });
}

}  // namespace velorin
