// A picture of a frequency response.
#pragma once

#include <optional>
#include <string>

#include "dsp/ChainResponse.h"

namespace velorin {

/// Draws the response into a PNG file: frequency from left to right in equal ratios, gain in dB,
/// one curve a channel. Nothing on success, else one line that says why not; then an older file of
/// that name is untouched.
std::optional<std::string> writeResponsePlot(const ChainResponse& response,
                                             const std::filesystem::path& file);

}  // namespace velorin
