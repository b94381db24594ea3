// How rates, formats and the road of the sound read.
#pragma once

#include <string>
#include <vector>

#include "engine/PlaybackFacts.h"

namespace velorin {

/// "44.1 kHz", "48 kHz", "11.025 kHz".
std::string rateText(double hertz);

/// "DSD64" … "DSD512", and "DSD" for a rate of no class.
std::string dsdText(double hertz);

/// "4:56", "1:02:03"; whole seconds, rounded down.
std::string timeText(double seconds);

/// The road from file to device with the verdict, in wordings from the longest to the shortest:
/// "FLAC 44.1 kHz 16-bit → integer → DAC (exclusive) · bit-perfect" … "bit-perfect",
/// "DSF DSD64 → 88.2 kHz → float → DAC · not bit-perfect: DSD is converted to PCM". What plays from
/// RAM says so.
std::vector<std::string> pathTexts(const PlaybackFacts& facts);

/// One line of at most `columns`: the head stands, the path takes the longest wording that leaves
/// the title room, the title gets the rest and is shortened if need be.
std::string composeStatus(const std::string& head, const std::string& title,
                          const std::vector<std::string>& paths, int columns);

}  // namespace velorin
