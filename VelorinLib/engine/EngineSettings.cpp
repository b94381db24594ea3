#include "engine/EngineSettings.h"

#include "foundation/Preferences.h"

namespace velorin {
namespace {

constexpr int kSmallestMultiplier = 2;

SampleRateStrategy storedStrategy(const Preferences& preferences) {
  if (const auto raw = preferences.getInt("sampleRateStrategy")) {
    if (const auto strategy = fromRaw<SampleRateStrategy>(*raw)) return *strategy;
  }
  // How earlier versions kept it.
  return preferences.getBool("resamplingEnabled").value_or(false) ? SampleRateStrategy::powerOf2
                                                                  : SampleRateStrategy::native;
}

}  // namespace

EngineSettings EngineSettings::load(const Preferences& preferences) {
  EngineSettings settings;
  settings.rates.strategy = storedStrategy(preferences);
  settings.rates.multiplier = static_cast<int>(std::clamp<std::int64_t>(
      preferences.getInt("resamplingMultiplier").value_or(0), kSmallestMultiplier, 64));
  settings.rates.fixedRate = preferences.getDouble("fixedSampleRate").value_or(0);
  settings.rates.forceHighRate = preferences.getBool("forceHighSampleRate").value_or(false);
  settings.integerMode = preferences.getBool("integerMode").value_or(false);
  settings.lowLatencyMode = preferences.getBool("lowLatencyMode").value_or(false);
  return settings;
}

}  // namespace velorin
