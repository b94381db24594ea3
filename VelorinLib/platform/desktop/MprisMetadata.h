// A track as the bus tells it: the metadata map of MPRIS. For the files of this folder.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/desktop/MprisTypes.h"

namespace sdbus {
class Variant;
}

namespace velorin {

inline constexpr const char* kNoTrackPath = "/org/mpris/MediaPlayer2/TrackList/NoTrack";

/// The object path of an item.
std::string trackPath(MprisTrackId id);
/// The item of such a path; none for any other path.
std::optional<MprisTrackId> trackOfPath(std::string_view path);

/// What the bus takes as text: valid UTF-8 without NUL, at most 4 KiB. A bus ends the connection of
/// those who send anything else.
std::string busText(std::string_view text);

/// mpris: and xesam: fields with what is known of the track. Looks whether the cover is there.
std::map<std::string, sdbus::Variant> metadataOf(const MprisTrack& track);
/// That of no track.
std::map<std::string, sdbus::Variant> metadataOfNoTrack();

}  // namespace velorin
