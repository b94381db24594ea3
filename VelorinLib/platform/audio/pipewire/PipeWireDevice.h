// One sink of the server: its properties, formats and volumes, kept up to date.
#pragma once

#include <pipewire/pipewire.h>

#include <functional>

#include "platform/audio/pipewire/PipeWireCard.h"
#include "platform/audio/pipewire/PipeWireConnection.h"
#include "platform/audio/pipewire/PipeWireParams.h"
#include "platform/audio/pipewire/PipeWireProperties.h"
#include "platform/audio/pipewire/PipeWireVolume.h"

namespace velorin {

/// All operations with the loop's lock held.
class PipeWireDevice {
 public:
  /// Hears of changes; called with the lock held.
  struct Changes {
    std::function<void()> volume;  ///< the volume, by somebody else
    std::function<void()> name;
  };
  PipeWireDevice(AudioDeviceID id, pw_registry* registry, const PipeWireGlobal& node,
                 Changes changes);
  ~PipeWireDevice();
  PipeWireDevice(const PipeWireDevice&) = delete;
  PipeWireDevice& operator=(const PipeWireDevice&) = delete;

  AudioDeviceID id() const noexcept { return _id; }
  std::uint32_t nodeId() const noexcept { return _nodeId; }
  const std::string& uid() const noexcept { return _uid; }
  const PipeWireProperties& properties() const noexcept { return _properties; }
  std::string name() const;

  const PipeWireOffer& offer() const noexcept { return _offer; }
  std::uint32_t channels() const;
  /// What the sink runs at now; nullopt while it is suspended.
  std::optional<PipeWireFormat> format() const;
  /// As the server told them last.
  const PipeWireGains& gains() const noexcept { return _gains; }
  /// The channel volumes as they are being set: what was sent is there at once.
  const PipeWireVolume& volume() const noexcept { return _volume; }
  /// Sets channelVolumes of the sink, or of the way out of its card when it has one. settleVolume()
  /// is due after PipeWireVolume::kEchoTime.
  AudioStatus setChannelGains(std::vector<float> gains, PipeWireCard* card);
  void settleVolume();
  /// The card's own mixer does channelVolumes.
  bool hasHardwareVolume(const PipeWireCard* card) const;
  /// Frames at that rate that the sink delays, beyond the quantum.
  std::uint32_t latency(double rate) const;

 private:
  const PipeWireRoute* routeIn(const PipeWireCard* card) const;
  void handleInfo(const pw_node_info& info);
  void handleParam(std::uint32_t id, std::uint32_t index, const spa_pod* param);
  static const pw_node_events kEvents;

  const AudioDeviceID _id;
  const std::uint32_t _nodeId;
  const std::string _uid;
  const Changes _changes;
  pw_proxy* _proxy = nullptr;
  spa_hook _listener{};
  PipeWireProperties _properties;
  pw_node_state _state = PW_NODE_STATE_SUSPENDED;
  PipeWireOffer _offer;
  std::optional<PipeWireFormat> _format;
  PipeWireGains _gains;
  PipeWireVolume _volume;
  std::vector<std::byte> _latency;  ///< the parameter, for its parts count at a rate
};

}  // namespace velorin
