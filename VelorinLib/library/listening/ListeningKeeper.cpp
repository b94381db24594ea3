#include "library/listening/ListeningKeeper.h"

#include <unistd.h>

#include "foundation/Log.h"
#include "library/listening/FavoriteMarks.h"
#include "library/listening/SoundSearch.h"
#include "platform/media/SoundHash.h"

namespace velorin {
namespace {

/// The id of the track behind which the next scan goes on to learn sounds.
constexpr const char* kLearntUpTo = "trackSoundsLearntUpTo";

std::optional<std::string> hashOf(const std::string& path) {
  auto hash = hashSound(path);
  if (hash) return std::move(hash.value().hex);
  if (::access(path.c_str(), R_OK) != 0) return std::nullopt;
  return "";
}

template <class Step>
void logged(const char* what, Step&& step) {
  try {
    step();
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ {}: {}", what, error.message);
  }
}

}  // namespace

ListeningKeeper::ListeningKeeper(const DatabaseHandle& database, Preferences& preferences)
    : ListeningKeeper(database, preferences, &hashOf) {}

ListeningKeeper::ListeningKeeper(const DatabaseHandle& database, Preferences& preferences,
                                 TrackSounds::HashSound hashSound)
    : _database(database), _preferences(preferences), _hashSound(std::move(hashSound)) {
  follow();
  note();
  _favoritesChanged =
      _preferences.observe(kFavoriteTrackIds, [this] { _notes.async([this] { note(); }); });
}

void ListeningKeeper::note() const {
  logged("Favourites could not be noted", [&] { noteFavorites(_database, _preferences); });
}

void ListeningKeeper::follow() const {
  logged("Favourites could not be brought up to date",
         [&] { followSuccessions(_database, _preferences); });
}

void ListeningKeeper::afterClear() const {
  follow();
  note();
}

void ListeningKeeper::afterScan(const std::function<bool()>& isCancelled) const {
  TrackSounds sounds(_database, _hashSound);
  logged("Moved tracks could not be looked for", [&] { find(sounds, isCancelled); });
  follow();
  note();
  logged("The sound of tracks could not be noted", [&] { learn(sounds, isCancelled); });
}

void ListeningKeeper::find(TrackSounds& sounds, const std::function<bool()>& isCancelled) const {
  // First the files that were written: what they held before may be elsewhere now.
  for (const auto& track : sounds.outdated(kDecodedPerScan)) {
    if (isCancelled()) return;
    sounds.learn(track);
  }
  SoundSearch(_database, sounds, isCancelled).run(sounds.decoded() + kDecodedPerScan);
}

void ListeningKeeper::learn(TrackSounds& sounds, const std::function<bool()>& isCancelled) const {
  const auto learntUpTo = _preferences.getInt(kLearntUpTo).value_or(0);
  const auto unknown = sounds.unknown(learntUpTo, kLearntPerScan);
  for (const auto& track : unknown.tracks) {
    if (isCancelled()) return;
    sounds.learn(track);
  }
  if (unknown.upTo != learntUpTo) _preferences.setInt(kLearntUpTo, unknown.upTo);
}

}  // namespace velorin
