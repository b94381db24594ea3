// Turns a stretch of the score into stereo samples.
#pragma once

#include <cstddef>
#include <vector>

#include "Score.h"

namespace velorin::demo {

/// Two channels of samples in -1 to 1.
struct StereoSound {
  std::vector<float> left;
  std::vector<float> right;
  std::size_t frames() const { return left.size(); }
};

/// Renders frames [firstFrame, lastFrame) of the piece, counted at `sampleRate`. Notes that began
/// earlier and their echoes are part of it, so that two stretches that meet join without a seam.
StereoSound renderScore(const Score& score, unsigned sampleRate, std::size_t firstFrame,
                        std::size_t lastFrame);

}  // namespace velorin::demo
