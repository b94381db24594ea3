// What a player tells the desktop's media controls, and what these ask of it.
//
// Plain values: times are microseconds, as on the bus. Text may hold any bytes, what goes onto the
// bus is made valid there.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace velorin {

/// An item of a track list. The id is the item's own for as long as it stays in the list: the same
/// file twice in a list has two ids, and an id is never used again.
using MprisTrackId = std::uint64_t;

struct MprisTrack {
  MprisTrackId id = 0;
  std::string filePath;     ///< native bytes
  std::string coverPath;    ///< of a picture; told only while such a file exists. May be empty
  std::int64_t length = 0;  ///< microseconds, 0 when not known
  std::string title;
  std::string artist;
  std::string album;
  std::string albumArtist;
  std::string composer;
  std::string genre;
  std::string comment;
  std::optional<int> trackNumber;
  std::optional<int> discNumber;
  std::optional<int> year;
  std::optional<int> useCount;
  std::optional<double> userRating;  ///< 0 to 1

  bool operator==(const MprisTrack&) const = default;
};

enum class MprisStatus : std::uint8_t { stopped, playing, paused };
enum class MprisLoop : std::uint8_t { none, track, playlist };

struct MprisState {
  MprisStatus status = MprisStatus::stopped;
  MprisLoop loop = MprisLoop::none;
  bool shuffle = false;
  double volume = 1;                ///< linear, 0 to 1
  std::optional<MprisTrack> track;  ///< none: "no track"
  bool canGoNext = false;
  bool canGoPrevious = false;
  bool canPlay = false;
  bool canPause = false;
  bool canSeek = false;

  bool operator==(const MprisState&) const = default;
};

/// Called on the main thread, but for `position`. An empty one does nothing. Arguments are sound:
/// what could not be is refused on the bus before.
struct MprisCommands {
  std::function<void()> raise;  ///< empty: CanRaise is false
  std::function<void()> quit;   ///< empty: CanQuit is false
  std::function<void()> play;
  std::function<void()> pause;
  std::function<void()> playPause;
  std::function<void()> stop;
  std::function<void()> next;
  std::function<void()> previous;
  std::function<void(std::int64_t offset)> seek;  ///< from where it is, may leave the track
  /// Only if that track is still the current one.
  std::function<void(MprisTrackId track, std::int64_t position)> setPosition;
  std::function<void(MprisLoop loop)> setLoop;
  std::function<void(bool on)> setShuffle;
  std::function<void(double volume)> setVolume;  ///< 0 to 1
  /// False: not a file we play.
  std::function<bool(const std::string& filePath)> openFile;
  /// After that item, or at the start; and plays it at once. False: not a file we play.
  std::function<bool(const std::string& filePath, std::optional<MprisTrackId> after, bool play)>
      addTrack;
  std::function<void(MprisTrackId track)> removeTrack;
  std::function<void(MprisTrackId track)> goTo;

  /// Any thread: where the player is now. Must not wait for the main thread.
  std::function<std::int64_t()> position;
};

}  // namespace velorin
