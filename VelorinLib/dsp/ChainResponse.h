// The frequency response of a chain.
#pragma once

#include <string>
#include <vector>

#include "dsp/DSPEffects.h"

namespace velorin {

struct ResponsePoint {
  double frequency = 0;  ///< Hz
  double leftDB = 0;     ///< of an impulse that both channels get; -200 to 831
  double rightDB = 0;
};

struct ChainResponse {
  double sampleRate = 0;  ///< Hz
  std::vector<ResponsePoint> points;
  /// Effects of the chain that have no frequency response and were left out.
  std::vector<DSPEffectType> leftOut;
};

/// Sends a small impulse through the chain as it is set and looks at what comes out, at `count`
/// frequencies (2 or more) in equal ratios from 20 Hz up to 20 kHz, or to just below half the rate.
/// Dither and declicker are left out, of the vinyl simulator its noise. The effects are used up by
/// it: they hold the impulse afterwards. Not the render thread; a tenth of a second to some.
ChainResponse measureResponse(DSPEffects& effects, double sampleRate, std::size_t count);

}  // namespace velorin
