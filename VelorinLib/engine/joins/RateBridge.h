// What a join does about sample rates: the stream's rate never changes, so the next source fits it,
// is resampled to it, or is refused. Pure decisions.
#pragma once

#include <string>

namespace velorin {

struct RateBridge {
  enum class Resampling {
    none,
    bridge,      ///< made by an earlier join
    byStrategy,  ///< the listener's choice, or the device's lack of the rate
  };

  /// Rates in Hz.
  struct Situation {
    double newRate = 0;      ///< of the next source
    double fileRate = 0;     ///< of the source so far
    double clientRate = 0;   ///< of the stream
    double plannedRate = 0;  ///< of a stream that began with the next source
    Resampling resampling = Resampling::none;
    bool isNative = false;  ///< strategy `native`: rates are not to be changed for a join
  };

  enum class Action {
    refuse,
    goOn,     ///< the resampler, or none, as it is
    replace,  ///< a new one from newRate to clientRate; none where the two are equal
  };

  struct Decision {
    Action action = Action::refuse;
    bool isBridge = false;  ///< of the resampler from now on
    std::string line = {};  ///< for the log, where there is something to say
  };

  /// `name` begins the lines: "Gapless" or "Crossfade".
  static Decision decide(const Situation& situation, const std::string& name = "Gapless");
};

}  // namespace velorin
