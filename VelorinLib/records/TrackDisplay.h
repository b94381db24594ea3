// How lists and the remote show what a track is.
//
// Pure functions, any thread. What is not known shows as kUnknownText.
#pragma once

#include <string>
#include <string_view>

#include "records/TrackInfo.h"

namespace velorin {

inline constexpr const char* kUnknownText = "—";

/// A track of one bit whose format is "DSD".
bool isDSD(const Track& track) noexcept;

/// "44.1 kHz", "800 Hz"; "DSD64" to "DSD512" for the one-bit rate that has this name.
std::string sampleRateText(const Track& track);

/// "24-bit", or the name of the one-bit rate.
std::string bitDepthText(const Track& track);

/// One line for a list: "24bit / 96.0 kHz" with what is known of it, "320 kbps" for a track that
/// has a bit rate and no bit depth, or the name of the one-bit rate.
std::string qualityLine(const Track& track);

/// More than a compact disc holds: DSD, above 48 kHz or above 16 bit.
bool isHighResolution(const Track& track) noexcept;

/// Seconds as "m:ss", cut to whole seconds. Minutes go on counting: an hour is "60:00".
std::string durationText(double seconds);

/// The track's genre, else its album's, else "".
std::string_view genreShown(const TrackInfo& info) noexcept;

}  // namespace velorin
