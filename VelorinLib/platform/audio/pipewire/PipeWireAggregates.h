// Combining sinks: made by the server's own combining module, loaded into this process.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "platform/audio/pipewire/PipeWireSystem.h"

struct pw_impl_module;

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
  AudioStatus destroy(AudioDeviceID device);
  bool contains(const std::string& uid) const;

 private:
  const std::shared_ptr<PipeWireSystem> _system;
  std::map<std::string, pw_impl_module*> _modules;  ///< by UID; with the loop's lock held
};

}  // namespace velorin
