#include "session/Bookmarks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Text.h"
#include "foundation/Uuid.h"
#include "library/DatabaseManager.h"

namespace velorin {
namespace {

constexpr std::array kColors{"#FF5733", "#33A1FF", "#33FF57", "#FF33F5",
                             "#FFD433", "#33FFF5", "#A833FF", "#FF8C33"};

void sortByPosition(std::vector<TrackBookmark>& bookmarks) {
  std::ranges::stable_sort(bookmarks, {}, &TrackBookmark::position);
}

}  // namespace

struct Bookmarks::Written {
  std::int64_t trackId = 0;
  std::uint64_t number = 0;
  std::vector<TrackBookmark> list;
  bool isStored = false;
};

Bookmarks::Bookmarks(Services services) : _services(std::move(services)) {}

Bookmarks::~Bookmarks() = default;

void Bookmarks::reload(const std::optional<TrackInfo>& currentTrack) {
  const auto id = currentTrack ? currentTrack->track.id : std::nullopt;
  // Read anew, the record may be older than what is being written.
  if (id != _trackId || !id) _wished.reset();
  _trackId = id;
  _list.clear();
  if (currentTrack && currentTrack->track.bookmarks) _list = *currentTrack->track.bookmarks;
  sortByPosition(_list);
}

std::vector<TrackBookmark> Bookmarks::latest() const {
  return _wished.value_or(_list);
}

void Bookmarks::add(double position) {
  if (!_trackId || std::isnan(position) || std::isinf(position)) return;
  auto wished = latest();
  if (wished.size() >= kMost) {
    if (_services.beep) _services.beep();
    return;
  }
  static_assert(kColors.size() == 8);
  wished.push_back({makeUuid(), std::max(position, 0.0), std::nullopt, kColors[wished.size() & 7]});
  sortByPosition(wished);
  store(std::move(wished));
}

void Bookmarks::remove(const std::string& id) {
  auto wished = latest();
  if (std::erase_if(wished, [&](const TrackBookmark& each) { return each.id == id; }) > 0) {
    store(std::move(wished));
  }
}

void Bookmarks::update(const std::string& id, std::optional<std::string> label,
                       std::optional<std::string> color) {
  auto wished = latest();
  const auto found = std::ranges::find(wished, id, &TrackBookmark::id);
  if (found == wished.end()) return;
  if (label && label->empty()) found->label.reset();
  if (label && !label->empty()) found->label = text::toValidUTF8(*label);
  if (color) found->color = text::toValidUTF8(*color);
  store(std::move(wished));
}

void Bookmarks::store(std::vector<TrackBookmark> wished) {
  if (!_trackId) return;
  _wished = wished;
  Written task{*_trackId, ++_newest, std::move(wished), false};
  _writes.async([this, alive = std::weak_ptr(_alive), database = _services.database,
                 task = std::move(task)]() mutable {
    try {
      if (!database) throw VelorinDatabaseError(kDatabaseUnavailable);
      database->trackEdits().updateBookmarks(task.trackId, task.list);
      task.isStored = true;
    } catch (const VelorinDatabaseError& error) {
      log::line("❌ Bookmarks cannot be stored: {}", error.what());
    }
    MainThread::instance().post([this, alive, task = std::move(task)] {
      if (alive.lock()) written(task);
    });
  });
}

void Bookmarks::written(const Written& result) {
  if (result.number == _newest) _wished.reset();
  if (!result.isStored) return;
  if (result.trackId == _trackId) _list = result.list;
  if (_services.stored) _services.stored(result.trackId, result.list);
}

}  // namespace velorin
