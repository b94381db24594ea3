// The session as it is kept between two runs of the program.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "session/TrackList.h"

namespace velorin {

/// What leads back to a file from outside the library. A part of a file that a CUE sheet cut out
/// is kept with what the sheet said of it: the sheet is not needed to bring it back.
struct SavedExternal {
  struct CuePart {
    double start = 0;           ///< seconds in the file
    std::optional<double> end;  ///< empty: to the end of the file
    std::string title;
    std::string artist;
    std::string album;
    std::optional<int> trackNumber;

    bool operator==(const CuePart&) const = default;
  };

  std::string path;  ///< native bytes
  std::optional<CuePart> cue;

  bool operator==(const SavedExternal&) const = default;
};

/// Those of the item, which is one from outside the library.
SavedExternal savedExternalOf(const TrackInfo& info);

/// Pieces of a session, as a set: what is asked for, and what is written.
enum class SessionPart : std::uint8_t {
  position = 1 << 0,  ///< position, duration
  place = 1 << 1,     ///< the current track, where it stands, and how it was come to
  queue = 1 << 2,     ///< the items of the timeline: the costly part
  autoplay = 1 << 3,  ///< the items of the autoplay queue
};

class SessionParts {
 public:
  constexpr SessionParts() = default;
  constexpr SessionParts(SessionPart part)  // NOLINT: a set of one
      : _bits(static_cast<std::uint8_t>(part)) {}

  static constexpr SessionParts all() noexcept {
    return SessionParts(SessionPart::position) | SessionPart::place | SessionPart::queue |
           SessionPart::autoplay;
  }
  constexpr bool has(SessionPart part) const noexcept {
    return (_bits & static_cast<std::uint8_t>(part)) != 0;
  }
  constexpr bool empty() const noexcept { return _bits == 0; }
  constexpr SessionParts operator|(SessionParts other) const noexcept {
    SessionParts both;
    both._bits = static_cast<std::uint8_t>(_bits | other._bits);
    return both;
  }
  constexpr SessionParts& operator|=(SessionParts other) noexcept { return *this = *this | other; }

 private:
  std::uint8_t _bits = 0;
};

constexpr SessionParts operator|(SessionPart a, SessionPart b) noexcept {
  return SessionParts(a) | SessionParts(b);
}

/// A plain value. Where it came from a file the numbers are whatever stood there.
struct SavedSession {
  // position
  double position = 0;  ///< seconds in the current track
  double duration = 0;  ///< seconds; 0 where it is not known

  // place
  std::int64_t trackId = 0;                         ///< of the current track; 0 when it has none
  std::optional<SavedExternal> externalTrack = {};  ///< the current track, when it is external
  std::int64_t queueIndex = 0;                      ///< of the timeline; at least 0
  bool isAutoplay = false;  ///< the current track came from the autoplay queue
  /// How far before the newest entry of the history the listener has walked.
  std::optional<std::int64_t> historyNavOffset = {};

  // queue
  std::vector<std::int64_t> queueIds = {};              ///< 0 for an item without an id
  std::map<std::size_t, SavedExternal> externals = {};  ///< by their index in the queue

  // autoplay
  std::vector<std::int64_t> autoplayIds = {};

  bool operator==(const SavedSession&) const = default;
};

/// The queue part of a timeline.
void setQueue(SavedSession& session, const TrackList& timeline);

}  // namespace velorin
