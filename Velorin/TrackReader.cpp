#include "TrackReader.h"

#include <fmt/format.h>

#include <memory>
#include <system_error>

#include "FileFacts.h"
#include "foundation/MainThread.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

/// Short enough for the end not to wait, long enough for few wake-ups of the main thread.
constexpr std::chrono::milliseconds kPiece{50};

}  // namespace

TrackReader::Batch TrackReader::readFor(std::chrono::milliseconds time) {
  const auto deadline = std::chrono::steady_clock::now() + time;
  const std::size_t first = _next;
  Batch batch;
  while (_next < _entries.size() && !_isStopped) {
    const PlayListEntry& entry = _entries[_next++];
    std::error_code unreachable;
    if (std::filesystem::exists(entry.path, unreachable)) {
      batch.tracks.push_back(trackOf(entry));
    } else {
      batch.problems.push_back(
          fmt::format("{}: {}", text::pathForDisplay(entry.path), whyUnplayable(entry.path)));
    }
    if (!batch.tracks.empty() && std::chrono::steady_clock::now() >= deadline) break;
  }
  if (!_deliver) _unread -= _next - first;
  return batch;
}

void TrackReader::start(std::function<void(Batch)> deliver) {
  _deliver = std::move(deliver);
  if (_unread > 0) readOn();
}

void TrackReader::readOn() {
  _queue.async([this] {
    const std::size_t first = _next;
    Batch batch = readFor(kPiece);
    MainThread::instance().post([this, alive = std::weak_ptr<int>(_alive), count = _next - first,
                                 batch = std::move(batch)]() mutable {
      if (alive.expired() || _isStopped) return;
      _unread -= count;
      _deliver(std::move(batch));
      if (_unread > 0) readOn();
    });
  });
}

}  // namespace velorin
