#include "desktop/FolderCovers.h"

#include <utility>

#include "foundation/MainThread.h"
#include "library/artwork/FolderArtwork.h"
#include "platform/files/MountTable.h"

namespace velorin {
namespace {

std::string search(const std::string& folder) {
  const MountTable mounts = MountTable::current();
  const Mount* mount = mounts.mountOf(folder);
  if (!mount || !isLocal(*mount)) return {};
  return findArtwork(folder).value_or("");
}

}  // namespace

std::string FolderCovers::coverBeside(const std::string& filePath, std::function<void()> found) {
  const std::size_t slash = filePath.rfind('/');
  if (!filePath.starts_with('/') || slash == 0) return {};
  std::string folder = filePath.substr(0, slash);
  if (folder == _state->folder) return _state->cover;

  *_state = {.folder = folder, .cover = {}};
  _queue.async([weak = std::weak_ptr<State>(_state), folder = std::move(folder),
                found = std::move(found)]() mutable {
    std::string cover = search(folder);
    if (cover.empty()) return;
    MainThread::instance().post(
        [weak, folder = std::move(folder), cover = std::move(cover), found = std::move(found)] {
          const auto state = weak.lock();
          if (!state || state->folder != folder) return;
          state->cover = cover;
          found();
        });
  });
  return {};
}

}  // namespace velorin
