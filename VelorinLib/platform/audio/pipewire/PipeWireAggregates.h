// Combining sinks: made by the server's own combining module, loaded into this process.
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

  /// Makes the sink and waits up to 2 s until it is announced.
  AudioStatus create(const AudioHardware::AggregateDescription& description,
                     AudioDeviceID& created);
  /// -ENODEV for a device that is not one of these, or whose server has ended meanwhile.
  AudioStatus destroy(AudioDeviceID device);

 private:
  class Module;
  void forget(const std::string& uid);

  const std::shared_ptr<PipeWireSystem> _system;
  std::map<std::string, std::unique_ptr<Module>> _modules;  ///< by UID; with the loop's lock held
};

}  // namespace velorin
