#include "library/artwork/AccentColorManager.h"

#include "foundation/Log.h"
#include "library/artwork/ArtworkCacheManager.h"
#include "library/queries/AlbumArtwork.h"
#include "library/sqlite/DatabaseError.h"
#include "platform/images/ImageDecoder.h"

namespace velorin {

AccentColorManager::AccentColorManager(const DatabaseHandle& database,
                                       const ArtworkCacheManager& artwork, MainLoop mainLoop)
    : _database(database),
      _artwork(artwork),
      _mainLoop(std::move(mainLoop)),
      _extraction("com.velorin.accent") {}

AccentColorManager::~AccentColorManager() = default;

AccentColorManager::Task AccentColorManager::ifStillWanted(Task task) const {
  return [wanted = std::weak_ptr(_debounceTask), task = std::move(task)] {
    if (wanted.lock()) task();
  };
}

void AccentColorManager::update(std::optional<std::int64_t> albumId) {
  _debounceTask = std::make_shared<int>();
  _mainLoop.postAfter(kDebounce, ifStillWanted([this, albumId] { settle(albumId); }));
}

void AccentColorManager::settle(std::optional<std::int64_t> albumId) {
  if (!albumId) {
    publish(std::nullopt);
    return;
  }
  if (const auto known = _cache.find(*albumId); known != _cache.end()) {
    publish(known->second);
    return;
  }
  const std::weak_ptr<int> wanted = _debounceTask;
  _extraction.async([this, wanted, id = *albumId] {
    if (wanted.expired()) return;
    const Found found = find(id);
    _mainLoop.post([this, wanted, id, found] {
      if (!wanted.expired()) take(id, found);
    });
  });
}

/// On the queue.
AccentColorManager::Found AccentColorManager::find(std::int64_t albumId) const {
  try {
    if (const auto hex = AlbumArtwork(_database).albumAccentColor(albumId)) {
      if (const auto color = accentFromHex(*hex)) return {color, false};
    }
  } catch (const VelorinDatabaseError& error) {
    log::line("⚠️ Accent colour of album {} not read: {}", albumId, error.message);
  }
  if (!_artwork.hasCachedImage(albumId)) return {};
  const std::string path = _artwork.cachedImagePath(albumId);
  const auto cover = decodeImageFile(path, ArtworkCacheManager::kMaxSide);
  if (cover) return {accentColorOf(cover.value()), true};
  log::line("⚠️ No accent colour for album {}: {}", albumId, cover.error().reason);
  return {};
}

void AccentColorManager::take(std::int64_t albumId, const Found& found) {
  _cache[albumId] = found.color;
  if (found.isComputed && found.color) {
    _extraction.async([this, albumId, color = *found.color] { store(albumId, color); });
  }
  publish(found.color);
}

/// On the queue.
void AccentColorManager::store(std::int64_t albumId, const HSBColor& color) const {
  try {
    AlbumArtwork(_database).setAlbumAccentColor(albumId, accentHex(color));
  } catch (const VelorinDatabaseError& error) {
    log::line("⚠️ Accent colour of album {} not stored: {}", albumId, error.message);
  }
}

void AccentColorManager::publish(const std::optional<HSBColor>& color) {
  if (_currentAccent == color) return;
  _currentAccent = color;
  if (_changed) _changed();
}

}  // namespace velorin
