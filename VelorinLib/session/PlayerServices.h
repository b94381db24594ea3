// What the player asks of parts that it does not own. Each may be empty: the player then does
// without.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "records/TrackInfo.h"

namespace velorin {

class DatabaseManager;

/// Called on the main thread; what blocks goes elsewhere by itself.
struct PlayerServices {
  /// Where plays are counted and sessions are restored from. Without it nothing is counted, and
  /// a restored queue has its external files alone.
  std::shared_ptr<DatabaseManager> database;

  /// Fills the autoplay queue: anew when forced, else only when it runs low. It answers through
  /// PlayerState::setAutoplayQueue.
  std::function<void(bool forced)> refillAutoplay;

  /// A track was heard long enough to be told to the listening service; when it began.
  std::function<void(const TrackInfo&, std::chrono::system_clock::time_point began)> scrobble;
  /// This is playing now.
  std::function<void(const TrackInfo&)> announceNowPlaying;
  /// Looks up what the track lacks, with the preference "autoFetchMetadata".
  std::function<void(const TrackInfo&)> fetchMetadata;
  /// Gets the waveform of the track ready, and that of the one after it.
  std::function<void(const TrackInfo& current, const TrackInfo* following)> loadWaveforms;
  /// Tells the desktop of another track.
  std::function<void(const TrackInfo&)> notifyTrackChange;

  /// The live spectrum runs only while music plays and is watched.
  std::function<void(bool running)> runSpectrum;
  /// The colour that follows the cover fades out.
  std::function<void()> clearAccentColor;
  /// The sound of a wish that cannot be met.
  std::function<void()> beep;

  /// Machine-wide endings of the sleep timer. The platform's where empty.
  std::function<void()> suspendMachine;
  std::function<void()> powerOffMachine;
};

}  // namespace velorin
