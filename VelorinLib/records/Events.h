// Every event of the bus: the one table of who tells what to whom.
//
// An event is posted on the thread its comment names. Observers that touch observable state
// subscribe with Delivery::mainThread; the lifecycle events at the end of the program are
// delivered in place, so that posting them is waiting for them. "Nobody yet" marks a name that
// is reserved for a part that does not use it so far.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/audio/AudioTypes.h"
#include "records/DeviceSettings.h"
#include "records/PlaybackTypes.h"
#include "records/Track.h"

namespace velorin {

// --- Playback: posted by AudioEngine on the main thread ---

/// How a track took over from the one before it without a stop between them.
enum class Join { gapless, crossfade };

/// Another track is heard: after the output started, after a jump inside a CUE file, and at the
/// frame where a join becomes audible.
/// Observed by PlayerState, AppDelegate, RemoteStateObserver.
struct TrackDidChange {
  Track track;
  int sourceBitDepth = 0;    ///< 1 for DSD, 0 when the file does not tell
  std::optional<Join> join;  ///< empty for a track that was started by play()
};

/// Every change of the engine's state. Observed by PlayerState, AppDelegate, RemoteStateObserver.
struct PlaybackStateDidChange {
  PlaybackState state = PlaybackState::stopped;
};

/// Each tick of the transport timer, four a second while playing.
/// Observed by AppDelegate, RemoteStateObserver.
struct PlaybackProgressDidUpdate {};

/// A track ended with nothing joined to it. Observed by PlayerState.
struct PlayNextTrack {
  bool autoAdvance = false;  ///< true when the track played out, false on a listener's wish
};

/// A file cannot be found or opened. Observed by PlayerState and the sidebar.
struct PlaybackFileUnavailable {
  std::string title;  ///< of the track, or the file name where the title is blank
  std::string path;
};

// --- Requests to PlayerState: posted by nobody yet, main thread ---

/// Go back. Observed by PlayerState.
struct PlayPreviousTrack {};

/// Tell the engine the next track anew. Observed by PlayerState.
struct RequestNextTrack {};

// --- Devices: posted by the engine's device layer on the main thread ---

/// The device's own volume changed while the volume mode is hardware. Observed by PlayerState.
struct HardwareVolumeDidChange {
  double volume = 0;  ///< 0 to 1
};

/// The list of devices or the device in use changed. Observed by PlayerState and the device
/// sheet.
struct AudioDevicesDidChange {};

/// The engine changed its device without being asked. Observed by nobody yet.
struct AudioDeviceDidAutoSwitch {
  AudioDeviceID fromID = kNoDevice;
  std::optional<std::string> fromName;  ///< only after the loss of a device
  AudioDeviceID toID = kNoDevice;
  std::string toName;
};

/// A device that was lost is back. Posted by nobody yet, observed by the sidebar.
struct AudioDeviceSuggestSwitchBack {};

/// The profile of the incoming device was applied to the engine. Observed by PlayerState.
struct AudioDeviceSettingsWillSwitch {
  DeviceSettings settings;
};

/// Output to several devices at once was turned on or off. Observed by nobody yet.
struct MultiOutputDidChange {};

// --- Session ---

/// A new track is loading, and remote clients should hear of it before the engine answers.
/// Posted by PlayerState on the main thread, observed by RemoteStateObserver.
struct RemoteNeedsBroadcast {};

/// The program ends: write the session now. Posted by AppDelegate on the main thread, observed
/// by PlayerState, which has written when the post returns.
struct SavePlaybackState {};

// --- Library: posted on the main thread ---

/// Tracks, albums or artists were added, changed or removed. Posted by ScanPipeline (at most once
/// in five seconds), LibraryScanner, the tag writer and the album header; observed by
/// AudioAnalyzer, ReplayGainScanner, LibraryState.
struct LibraryDidUpdate {};

/// The library was emptied. Posted by LibraryState, observed by PlayerState.
struct LibraryDidClear {};

/// A batch of analysis rows was stored. Posted by DatabaseManager, observed by LibraryState.
struct AnalysisDidUpdate {};

/// A play or skip was recorded. Posted by DatabaseManager, observed by LibraryState.
struct PlaybackHistoryDidUpdate {};

/// Tags or lyrics of these tracks changed. Posted by the tag writer and MetadataFetchManager,
/// observed by PlayerState.
struct TrackTagsDidChange {
  std::vector<std::int64_t> trackIds;
};

// --- Files from outside: posted by AppDelegate on the main thread, observed by PlayerState ---

/// Files that the desktop asks us to open, all of a supported extension.
struct OpenExternalFiles {
  std::vector<std::filesystem::path> files;
};

/// What to do with files that another program hands over.
enum class ServiceMode { playNow, playNext, playLater };

struct ServicePlayFiles {
  std::vector<std::filesystem::path> urls;  ///< sorted by path
  ServiceMode mode = ServiceMode::playNow;
};

// --- Windows and menus: posted and observed on the main thread ---

/// Posted by the mini player, observed by AppDelegate.
struct ShowMainWindow {};

/// Posted by the player bar and its menu command, observed by AppDelegate.
struct ToggleMiniPlayer {};

/// Posted and observed by nobody yet.
struct OpenMiniPlayer {};

/// Posted by menu commands and views; observed by ContentView, which opens the window of that
/// name.
struct OpenSettings {};
struct OpenAudioScan {};
struct OpenDSPChain {};
struct OpenDSPChainEqualizer {};
struct OpenDSPChainHeadphones {};
struct OpenSleepTimer {};

/// Posted by the menu commands for backups, observed by ContentView.
struct ExportBackup {};
struct ImportBackup {};

/// Posted by the menu command "Find...", observed by the search field.
struct FocusSearchField {};

/// Posted by the menu command "Signal Path", observed by the player bar.
struct ToggleSignalPath {};

}  // namespace velorin
