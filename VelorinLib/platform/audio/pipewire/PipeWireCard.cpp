#include "platform/audio/pipewire/PipeWireCard.h"

namespace velorin {

const pw_device_events PipeWireCard::kEvents = [] {
  pw_device_events events{};
  events.version = PW_VERSION_DEVICE_EVENTS;
  events.info = [](void* self, const pw_device_info* info) {
    if (info && (info->change_mask & PW_DEVICE_CHANGE_MASK_PROPS)) {
      static_cast<PipeWireCard*>(self)->_properties.assign(info->props);
    }
  };
  return events;
}();

PipeWireCard::PipeWireCard(pw_registry* registry, const PipeWireGlobal& device)
    : _properties(device.props) {
  _proxy = static_cast<pw_proxy*>(
      pw_registry_bind(registry, device.id, PW_TYPE_INTERFACE_Device, PW_VERSION_DEVICE, 0));
  if (_proxy) {
    pw_device_add_listener(reinterpret_cast<struct pw_device*>(_proxy), &_listener, &kEvents, this);
  }
}

PipeWireCard::~PipeWireCard() {
  if (!_proxy) return;
  spa_hook_remove(&_listener);
  pw_proxy_destroy(_proxy);
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
