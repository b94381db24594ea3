#include "platform/audio/pipewire/PipeWireCard.h"

#include <spa/param/param.h>

#include <algorithm>
#include <cerrno>

namespace velorin {

const pw_device_events PipeWireCard::kEvents = [] {
  pw_device_events events{};
  events.version = PW_VERSION_DEVICE_EVENTS;
  events.info = [](void* self, const pw_device_info* info) {
    if (info && (info->change_mask & PW_DEVICE_CHANGE_MASK_PROPS)) {
      static_cast<PipeWireCard*>(self)->_properties.assign(info->props);
    }
  };
  events.param = [](void* self, int, std::uint32_t id, std::uint32_t index, std::uint32_t,
                    const spa_pod* param) {
    if (id == SPA_PARAM_Route) static_cast<PipeWireCard*>(self)->handleParam(index, param);
  };
  return events;
}();

PipeWireCard::PipeWireCard(pw_registry* registry, const PipeWireGlobal& device)
    : _properties(device.props) {
  _proxy = static_cast<pw_proxy*>(
      pw_registry_bind(registry, device.id, PW_TYPE_INTERFACE_Device, PW_VERSION_DEVICE, 0));
  if (!_proxy) return;
  auto* bound = reinterpret_cast<struct pw_device*>(_proxy);
  pw_device_add_listener(bound, &_listener, &kEvents, this);
  std::uint32_t ids[] = {SPA_PARAM_Route};
  pw_device_subscribe_params(bound, ids, 1);
}

PipeWireCard::~PipeWireCard() {
  if (!_proxy) return;
  spa_hook_remove(&_listener);
  pw_proxy_destroy(_proxy);
}

const PipeWireRoute* PipeWireCard::routeOf(std::int32_t device) const noexcept {
  const auto route = std::ranges::find_if(_routes, [&](const PipeWireRoute& candidate) {
    return candidate.isOutput && candidate.device == device;
  });
  return route == _routes.end() ? nullptr : &*route;
}

int PipeWireCard::setRouteGains(const PipeWireRoute& route, std::span<const float> gains) {
  if (!_proxy) return -ENODEV;
  PipeWirePodBuffer buffer;
  return pw_device_set_param(reinterpret_cast<struct pw_device*>(_proxy), SPA_PARAM_Route, 0,
                             buildRouteGains(buffer, route, gains));
}

void PipeWireCard::handleParam(std::uint32_t index, const spa_pod* param) {
  if (index == 0) _routes.clear();
  if (const auto route = parseRoute(param)) _routes.push_back(*route);
}

TransportType transportOf(const PipeWireProperties& sink, const PipeWireProperties* card) {
  const auto either = [&](const char* key) {
    std::string value = sink.text(key);
    return value.empty() && card ? card->text(key) : value;
  };
  const std::string api = either(PW_KEY_DEVICE_API);
  const std::string bus = either(PW_KEY_DEVICE_BUS);
  const std::string uid = sink.text(PW_KEY_NODE_NAME);
  if (api == "bluez5" || bus == "bluetooth") return TransportType::bluetooth;
  if (uid.starts_with("raop_sink")) return TransportType::airPlay;
  if (bus == "usb") return TransportType::usb;
  if (bus == "firewire") return TransportType::fireWire;
  if (uid.find("hdmi") != std::string::npos) return TransportType::hdmi;
  if (either(PW_KEY_DEVICE_FORM_FACTOR) == "internal") return TransportType::builtIn;
  // A codec on the mainboard also sits on the PCI bus, under the HDA driver of its controller.
  if (bus == "pci") {
    const std::string driver = either("alsa.driver_name");
    return driver == "snd_hda_intel" ? TransportType::builtIn : TransportType::pci;
  }
  if (bus == "platform") return TransportType::builtIn;
  const bool isSoftware = api.empty() && either("alsa.card").empty();
  if (isSoftware || sink.isTrue(PW_KEY_NODE_VIRTUAL)) return TransportType::virtualDevice;
  return TransportType::unknown;
}

}  // namespace velorin
