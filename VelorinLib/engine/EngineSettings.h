// What the listener set for the engine, with its start-up values from the preference store.
#pragma once

#include "engine/rates/SampleRatePlan.h"

namespace velorin {

class Preferences;

/// A plain value; the engine keeps one under its lifecycle lock.
struct EngineSettings {
  RateSettings rates;
  bool integerMode = false;
  bool exclusiveMode = false;
  bool lowLatencyMode = false;

  static EngineSettings load(const Preferences& preferences);
};

}  // namespace velorin
