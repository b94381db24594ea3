// A device object of the server (a sound card, a headset): where its sinks get their bus,
// their maker and the volume control of the hardware.
#pragma once

#include <pipewire/pipewire.h>

#include <span>
#include <vector>

#include "platform/audio/pipewire/PipeWireConnection.h"
#include "platform/audio/pipewire/PipeWireParams.h"
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

  /// The way out that is in use for sinks of that card.profile.device; null when there is none.
  const PipeWireRoute* routeOf(std::int32_t device) const noexcept;
  /// Sets the volumes of a way out; the sink's own properties follow. 0 or a negative errno.
  int setRouteGains(const PipeWireRoute& route, std::span<const float> gains);

 private:
  void handleParam(std::uint32_t index, const spa_pod* param);
  static const pw_device_events kEvents;
  pw_proxy* _proxy = nullptr;
  spa_hook _listener{};
  PipeWireProperties _properties;
  std::vector<PipeWireRoute> _routes;
};

/// How a sink is attached, from its own properties and those of its card, if it has one.
TransportType transportOf(const PipeWireProperties& sink, const PipeWireProperties* card);

}  // namespace velorin
