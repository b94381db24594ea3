// The listeners of one AudioHardware: who wants to hear of which property, on which queue.
//
// Threads: every operation from any thread but the render thread. Nothing runs inside notify();
// it only queues.
#pragma once

#include <functional>
#include <memory>

#include "platform/audio/AudioHardware.h"

namespace velorin {

class ListenerList {
 public:
  ListenerList();

  /// See AudioHardware::addListener. The Listener may outlive this list.
  AudioHardware::Listener add(AudioProperty property, AudioDeviceID device, std::uint32_t element,
                              SerialQueue& queue, std::function<void()> changed);

  /// Queues a call for each listener of the property. For `devices` and `defaultOutput` the
  /// device and the element do not count; for `nominalSampleRate` the element does not.
  void notify(AudioProperty property, AudioDeviceID device = kNoDevice, std::uint32_t element = 0);

 private:
  struct State;
  std::shared_ptr<State> _state;
};

}  // namespace velorin
