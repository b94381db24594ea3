// Tags that the listener edits: into the files first, then into the library.
//
// A failed file write leaves both as they were. A failed database write leaves the file changed,
// and says so; the next scan picks it up by its size or date. A track of a CUE sheet shares its
// file with others: its tags live in the sheet, so only its rows change.
#pragma once

#include <functional>
#include <vector>

#include "foundation/SerialQueue.h"
#include "library/DatabaseHandle.h"
#include "library/metadata/TagChanges.h"
#include "library/queries/OrphanCleanup.h"

namespace velorin {

class EventBus;
class VolumeResolving;

/// Any thread but the render thread. What it is given outlives it; its end waits for the batches
/// that were begun.
class TagWriter {
 public:
  using Completion = std::function<void(std::vector<TagWriteResult>)>;

  /// Without a resolver a file whose volume is away counts as gone; without a bus nobody is told.
  explicit TagWriter(const DatabaseHandle& database, EventBus* events = nullptr,
                     VolumeResolving* volumes = nullptr)
      : _database(database), _events(events), _volumes(volumes) {}

  /// One track, at once; blocks for the disk. Albums and artists left without tracks stay.
  TagWriteResult writeOne(std::int64_t trackId, const TagChanges& changes) const;

  /// One after the other, at once; blocks for the disk. Then albums and artists that lost their
  /// last track go. Tells nobody.
  std::vector<TagWriteResult> writeAll(const std::vector<std::int64_t>& trackIds,
                                       const TagChanges& changes) const;

  /// writeAll on a queue of its own. Then, on the main thread: LibraryDidUpdate and
  /// TrackTagsDidChange with the tracks that were written, if any, and the completion.
  void write(std::vector<std::int64_t> trackIds, TagChanges changes, Completion completion);

 private:
  TagWriteResult writeOne(std::int64_t trackId, const TagChanges& changes, Bereaved& moved) const;
  bool isAccessible(const std::string& path) const;

  const DatabaseHandle& _database;
  EventBus* const _events;
  VolumeResolving* const _volumes;
  SerialQueue _queue{"com.velorin.tagwriter"};  ///< last: its tasks use the fields above
};

}  // namespace velorin
