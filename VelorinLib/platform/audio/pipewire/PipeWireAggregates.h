// Several sinks as one: made by the server's own combining module, loaded into this process.
//
// The combining node and its streams belong to this process, so that they end with it however it
// ends. All of them run in one cycle of the graph: what is played is given to every sink in the
// same cycle, and a sink with a clock of its own is fitted to the one that drives the graph. A sink
// that goes while others stay is left out and taken up again when it comes back.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "platform/audio/pipewire/PipeWireSystem.h"

namespace velorin {

/// Any thread; takes the loop's lock itself.
class PipeWireAggregates {
 public:
  explicit PipeWireAggregates(std::shared_ptr<PipeWireSystem> system);
  /// Ends the sinks that still are.
  ~PipeWireAggregates();
  PipeWireAggregates(const PipeWireAggregates&) = delete;
  PipeWireAggregates& operator=(const PipeWireAggregates&) = delete;

  /// Makes the device and waits up to 2 s until it plays on every one of its sinks. -EBUSY when one
  /// of them is held exclusively by somebody.
  AudioStatus create(const AudioHardware::AggregateDescription& description,
                     AudioDeviceID& created);
  /// -ENODEV for a device that is not one of these, or whose server has ended meanwhile.
  AudioStatus destroy(AudioDeviceID device);

 private:
  class Module;
  bool isLinked(const std::string& uid, const std::string& subDeviceUID) const;
  AudioStatus waitForLinks(const AudioHardware::AggregateDescription& description)
      REQUIRES(_system->loop());
  void forget(const std::string& uid);
  /// An aggregate that is connected to no sink plays to nobody.
  void endSilentOnes();

  const std::shared_ptr<PipeWireSystem> _system;
  // With the loop's lock held.
  std::map<std::string, std::unique_ptr<Module>> _modules;  ///< by UID
  std::string _beingMade;                                   ///< UID
};

}  // namespace velorin
