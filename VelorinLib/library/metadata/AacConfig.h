// How many channels the AAC in an MP4 file has.
//
// The sample entry says two whatever the sound is, as ISO/IEC 14496-14 asks. The truth is in the
// AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1), which the `esds` box of the entry carries
// (ISO/IEC 14496-1, 7.2.6).
#pragma once

#include <optional>

#include "library/metadata/DsdHeader.h"

namespace velorin {

/// Walks to the entry of the first track whose sound is MPEG-4 audio; reads the heads of a few
/// boxes and up to 512 bytes of the entry. Nothing when the file does not tell, as for a layout of
/// its own kind, and where a decoder may find a second channel that the set-up keeps silent about.
/// Pure but for `read`.
std::optional<int> aacChannels(const ReadAt& read);

/// The same from the bytes of an AudioSpecificConfig. Pure.
std::optional<int> channelsOfAudioSpecificConfig(HeaderBytes config);

}  // namespace velorin
