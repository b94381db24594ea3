// A device object of the server (a sound card, a headset): where its sinks get their bus and maker.
#pragma once

#include <pipewire/pipewire.h>

#include "platform/audio/pipewire/PipeWireConnection.h"
#include "platform/audio/pipewire/PipeWireProperties.h"

namespace velorin {

/// All operations with the loop's lock held.
class PipeWireCard {
 public:
  PipeWireCard(pw_registry* registry, const PipeWireGlobal& device);
  ~PipeWireCard();
  PipeWireCard(const PipeWireCard&) = delete;
  PipeWireCard& operator=(const PipeWireCard&) = delete;

  const PipeWireProperties& properties() const noexcept { return _properties; }

 private:
  static const pw_device_events kEvents;
  pw_proxy* _proxy = nullptr;
  spa_hook _listener{};
  PipeWireProperties _properties;
};

/// How a sink is attached, from its own properties and those of its card, if it has one.
TransportType transportOf(const PipeWireProperties& sink, const PipeWireProperties* card);

}  // namespace velorin
