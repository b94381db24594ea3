// The equalizer presets that come with the program.
#pragma once

#include <vector>

#include "dsp/presets/EQPreset.h"

namespace velorin {

/// 50 of them, "Flat" first, in the order of the list: peaking bands on the grid with the default
/// Q. Made on first use; any thread but the render thread.
const std::vector<EQPreset>& builtInPresets();

}  // namespace velorin
