// The quarter-second tick of a playing track, and the ten-second report of render overloads and of
// the time that effects take.
#pragma once

#include <memory>

#include "engine/render/RenderPath.h"

namespace velorin {

class EventBus;

/// start() and stop() from any thread but the render thread; the ticks are on the main thread.
class ProgressTimer {
 public:
  /// The bus must outlive every tick.
  ProgressTimer(EventBus& bus, std::shared_ptr<RenderControls> controls,
                std::shared_ptr<DSPEffects> effects);
  ~ProgressTimer();
  ProgressTimer(const ProgressTimer&) = delete;
  ProgressTimer& operator=(const ProgressTimer&) = delete;

  void start();
  void stop();

 private:
  struct State;
  std::shared_ptr<State> _state;
};

}  // namespace velorin
