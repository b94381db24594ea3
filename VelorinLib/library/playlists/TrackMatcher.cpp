#include "library/playlists/TrackMatcher.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>

#include "foundation/Normalization.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

using Entry = M3UManager::ParsedEntry;
using Id = std::int64_t;

/// How many of a path's last components make a name that hardly two files share.
constexpr int kSuffixComponents = 3;

/// The last components of a path.
std::string_view tailOf(std::string_view path, int components) noexcept {
  std::size_t from = path.size();
  for (; components > 0 && from != std::string_view::npos; --components) {
    from = from == 0 ? std::string_view::npos : path.rfind('/', from - 1);
  }
  return from == std::string_view::npos ? path : path.substr(from + 1);
}

std::string key(std::string_view name) {
  return text::lowercaseASCII(unicode::precomposed(name));
}

template <class Use>
void forEachPath(const Entry& entry, Use&& use) {
  use(entry.path);
  for (const std::string& path : entry.otherPaths) use(path);
}

/// Ids by path, for those of the paths that the library has.
std::unordered_map<std::string, Id> exactIds(sqlite::Reader& reader,
                                             const std::vector<Entry>& entries) {
  std::vector<std::string> paths;
  for (const Entry& entry : entries) {
    forEachPath(entry, [&](const std::string& path) { paths.push_back(path); });
  }
  std::unordered_map<std::string, Id> ids;
  sqlite::forEachSlice(paths, [&](std::span<const std::string> slice) {
    reader.each(
        fmt::format("SELECT id, filePath FROM tracks WHERE filePath IN ({})\n"
                    "ORDER BY cueStartTime IS NOT NULL, cueStartTime, id",
                    sqlite::placeholders(slice.size())),
        [&](const sqlite::Row& row) { ids.try_emplace(row.get<std::string>(1), row.get<Id>(0)); },
        slice);
  });
  return ids;
}

/// Names that are looked for, each with the lowest id of a row that has it.
class Names {
 public:
  void want(std::string name) { _ids.try_emplace(std::move(name)); }
  void offer(const std::string& name, Id id) {
    const auto wanted = _ids.find(name);
    if (wanted == _ids.end()) return;
    wanted->second = std::min(wanted->second.value_or(id), id);
  }
  bool wants(const std::string& name) const { return _ids.contains(name); }
  std::optional<Id> find(const std::string& name) const {
    const auto found = _ids.find(name);
    return found == _ids.end() ? std::nullopt : found->second;
  }
  bool empty() const noexcept { return _ids.empty(); }

 private:
  std::unordered_map<std::string, std::optional<Id>> _ids;
};

}  // namespace

std::vector<std::optional<Id>> matchTracks(sqlite::Reader& reader,
                                           const std::vector<Entry>& entries) {
  std::vector<std::optional<Id>> ids(entries.size());
  const auto exact = exactIds(reader, entries);
  Names names;
  Names suffixes;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    forEachPath(entries[i], [&](const std::string& path) {
      const auto found = exact.find(path);
      if (!ids[i] && found != exact.end()) ids[i] = found->second;
    });
    if (ids[i]) continue;
    forEachPath(entries[i], [&](const std::string& path) {
      names.want(key(tailOf(path, 1)));
      suffixes.want(key(tailOf(path, kSuffixComponents)));
    });
  }
  if (names.empty()) return ids;

  // A pattern for each name, tried against each path, would take minutes over a million tracks.
  reader.each("SELECT id, filePath FROM tracks", [&](const sqlite::Row& row) {
    const auto path = row.get<std::string_view>(1);
    const std::string name = key(tailOf(path, 1));
    if (!names.wants(name)) return;
    names.offer(name, row.get<Id>(0));
    suffixes.offer(key(tailOf(path, kSuffixComponents)), row.get<Id>(0));
  });
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const auto look = [&](const Names& among, int components) {
      forEachPath(entries[i], [&](const std::string& path) {
        if (!ids[i]) ids[i] = among.find(key(tailOf(path, components)));
      });
    };
    look(suffixes, kSuffixComponents);
    look(names, 1);
  }
  return ids;
}

}  // namespace velorin
