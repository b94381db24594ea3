#include "platform/audio/pipewire/PipeWireDevice.h"

#include <spa/param/param.h>

#include <cerrno>

namespace velorin {

const pw_node_events PipeWireDevice::kEvents = [] {
  pw_node_events events{};
  events.version = PW_VERSION_NODE_EVENTS;
  events.info = [](void* self, const pw_node_info* info) {
    if (info) static_cast<PipeWireDevice*>(self)->handleInfo(*info);
  };
  events.param = [](void* self, int, std::uint32_t id, std::uint32_t index, std::uint32_t,
                    const spa_pod* param) {
    static_cast<PipeWireDevice*>(self)->handleParam(id, index, param);
  };
  return events;
}();

PipeWireDevice::PipeWireDevice(AudioDeviceID id, pw_registry* registry, const PipeWireGlobal& node,
                               Changes changes)
    : _id(id),
      _nodeId(node.id),
      _uid(node.prop(PW_KEY_NODE_NAME)),
      _changes(std::move(changes)),
      _properties(node.props) {
  _proxy = static_cast<pw_proxy*>(
      pw_registry_bind(registry, _nodeId, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0));
  if (!_proxy) return;
  auto* bound = reinterpret_cast<pw_node*>(_proxy);
  pw_node_add_listener(bound, &_listener, &kEvents, this);
  // Subscribing also sends the present values.
  std::uint32_t ids[] = {SPA_PARAM_EnumFormat, SPA_PARAM_Format, SPA_PARAM_Props,
                         SPA_PARAM_Latency};
  pw_node_subscribe_params(bound, ids, 4);
}

PipeWireDevice::~PipeWireDevice() {
  if (!_proxy) return;
  spa_hook_remove(&_listener);
  pw_proxy_destroy(_proxy);
}

std::string PipeWireDevice::name() const {
  for (const char* key : {PW_KEY_NODE_DESCRIPTION, PW_KEY_NODE_NICK}) {
    if (std::string text = _properties.text(key); !text.empty()) return text;
  }
  return _uid;
}

std::uint32_t PipeWireDevice::channels() const {
  if (_format && _format->physical.channels > 0) return _format->physical.channels;
  return _offer.channels;
}

std::optional<PipeWireFormat> PipeWireDevice::format() const {
  // The server does not withdraw the parameter when it suspends a node.
  const bool isOpen = _state == PW_NODE_STATE_RUNNING || _state == PW_NODE_STATE_IDLE;
  return isOpen ? _format : std::nullopt;
}

const PipeWireRoute* PipeWireDevice::routeIn(const PipeWireCard* card) const {
  const auto device = _properties.number("card.profile.device");
  return card && device ? card->routeOf(*device) : nullptr;
}

bool PipeWireDevice::hasHardwareVolume(const PipeWireCard* card) const {
  const PipeWireRoute* route = routeIn(card);
  return route && route->hasHardwareVolume;
}

AudioStatus PipeWireDevice::setChannelGains(std::vector<float> gains, PipeWireCard* card) {
  if (!_proxy) return AudioStatus::failure(-ENODEV);
  // A sink with a mixer of its own gets its volumes from its card, and would soon forget others.
  int result = 0;
  if (const PipeWireRoute* route = routeIn(card)) {
    result = card->setRouteGains(*route, gains);
  } else {
    PipeWirePodBuffer buffer;
    result = pw_node_set_param(reinterpret_cast<pw_node*>(_proxy), SPA_PARAM_Props, 0,
                               buildGains(buffer, gains));
  }
  if (result < 0) return AudioStatus::failure(result, "the server did not take the volume");
  _volume.sent(std::move(gains), PipeWireVolume::Clock::now());
  return AudioStatus::success();
}

void PipeWireDevice::settleVolume() {
  if (_volume.settle(PipeWireVolume::Clock::now())) _changes.volume();
}

std::uint32_t PipeWireDevice::latency(double rate) const {
  const auto* param = reinterpret_cast<const spa_pod*>(_latency.data());
  return _latency.empty() ? 0 : parseInputLatency(param, rate).value_or(0);
}

void PipeWireDevice::handleInfo(const pw_node_info& info) {
  if (info.change_mask & PW_NODE_CHANGE_MASK_PROPS) {
    const std::string before = name();
    _properties.assign(info.props);
    if (name() != before) _changes.name();
  }
  if (info.change_mask & PW_NODE_CHANGE_MASK_STATE) _state = info.state;
}

void PipeWireDevice::handleParam(std::uint32_t id, std::uint32_t index, const spa_pod* param) {
  switch (id) {
    case SPA_PARAM_EnumFormat:
      if (index == 0) _offer = {};
      addFormatOffer(param, _offer);
      break;
    case SPA_PARAM_Format:
      _format = parseFormat(param);
      break;
    case SPA_PARAM_Props: {
      updateGains(param, _gains);
      // A mute is none: the volume stays what it was, and the report tells of the silence.
      if (_volume.told(_gains.channels, PipeWireVolume::Clock::now())) _changes.volume();
      break;
    }
    case SPA_PARAM_Latency:
      if (parseInputLatency(param, 1)) {
        const auto* bytes = reinterpret_cast<const std::byte*>(param);
        _latency.assign(bytes, bytes + SPA_POD_SIZE(param));
      }
      break;
    default:
      break;
  }
}

}  // namespace velorin
