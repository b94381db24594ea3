#include "library/metadata/TagWriter.h"

#include <sys/stat.h>

#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "library/metadata/TagFileWriter.h"
#include "library/queries/TagUpdate.h"
#include "library/rows/TrackInfos.h"
#include "library/volumes/VolumeResolving.h"
#include "records/Events.h"

namespace velorin {
namespace {

TagWriteResult failed(TagWriteResult result, std::string error,
                      std::optional<std::string> detail = std::nullopt) {
  const std::string what =
      result.filePath.empty() ? fmt::format("track {}", result.trackId) : result.filePath;
  log::line("❌ Tags of {} not written: {}{}{}", what, error, detail ? ": " : "",
            detail.value_or(""));
  result.error = std::move(error);
  result.detail = std::move(detail);
  return result;
}

std::optional<Track> trackOf(const DatabaseHandle& database, std::int64_t id) {
  auto found =
      database.read([&](sqlite::Reader& reader) { return rows::trackInfosInOrder(reader, {id}); });
  if (found.empty()) return std::nullopt;
  return std::move(found.front().track);
}

void add(const Bereaved& some, Bereaved& all) {
  all.albums.insert(some.albums.begin(), some.albums.end());
  all.artists.insert(some.artists.begin(), some.artists.end());
}

}  // namespace

bool TagWriter::isAccessible(const std::string& path) const {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 || (_volumes && _volumes->ensureAccess(path));
}

TagWriteResult TagWriter::writeOne(std::int64_t trackId, const TagChanges& changes) const {
  Bereaved moved;
  return writeOne(trackId, changes, moved);
}

TagWriteResult TagWriter::writeOne(std::int64_t trackId, const TagChanges& changes,
                                   Bereaved& moved) const {
  TagWriteResult result{.trackId = trackId};
  std::optional<FileStamp> stamp;
  try {
    const auto track = trackOf(_database, trackId);
    if (!track) return failed(std::move(result), "Track not found in database");
    result.filePath = track->filePath;
    if (!track->cueStartTime) {
      if (!isAccessible(track->filePath)) return failed(std::move(result), "File not accessible");
      const auto written = writeTags(track->filePath, changes);
      if (!written) {
        return failed(std::move(result), "TagLib failed to write tags", written.error().reason);
      }
      stamp = {static_cast<std::int64_t>(written.value().size), written.value().lastModified};
    }
    if (!_database.dbQueue()) return failed(std::move(result), "DB not open");
    add(TagUpdate(_database).apply(trackId, changes, stamp), moved);
  } catch (const std::exception& error) {
    return failed(std::move(result), fmt::format("Database update failed: {}", error.what()),
                  stamp ? std::optional<std::string>(
                              "the file holds the new tags; the next scan will take them over")
                        : std::nullopt);
  }
  result.success = true;
  return result;
}

std::vector<TagWriteResult> TagWriter::writeAll(const std::vector<std::int64_t>& trackIds,
                                                const TagChanges& changes) const {
  std::vector<TagWriteResult> results;
  results.reserve(trackIds.size());
  Bereaved moved;
  for (const std::int64_t id : trackIds) results.push_back(writeOne(id, changes, moved));
  try {
    if (!moved.albums.empty() || !moved.artists.empty()) TagUpdate(_database).cleanUp(moved);
  } catch (const std::exception& error) {
    log::line("⚠️ Albums and artists without tracks stay for now: {}", error.what());
  }
  return results;
}

void TagWriter::write(std::vector<std::int64_t> trackIds, TagChanges changes,
                      Completion completion) {
  _queue.async([this, trackIds = std::move(trackIds), changes = std::move(changes),
                completion = std::move(completion)]() mutable {
    auto results = writeAll(trackIds, changes);
    std::vector<std::int64_t> updated;
    for (const TagWriteResult& result : results) {
      if (result.success) updated.push_back(result.trackId);
    }
    MainThread::instance().post([events = _events, updated = std::move(updated),
                                 results = std::move(results),
                                 completion = std::move(completion)]() mutable {
      if (events && !updated.empty()) {
        events->post(LibraryDidUpdate{});
        events->post(TrackTagsDidChange{std::move(updated)});
      }
      if (completion) completion(std::move(results));
    });
  });
}

}  // namespace velorin
