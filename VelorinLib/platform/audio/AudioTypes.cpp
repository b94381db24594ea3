#include "platform/audio/AudioTypes.h"

#include <fmt/format.h>

#include <cstring>

namespace velorin {

AudioStatus AudioStatus::failure(int code, std::string text) {
  if (text.empty()) text = std::strerror(-code);
  return {code, std::move(text)};
}

std::string AudioStatus::description() const {
  return text.empty() ? fmt::format("{}", code) : fmt::format("{} ({})", code, text);
}

const char* transportName(TransportType type) noexcept {
  switch (type) {
    case TransportType::builtIn:
      return "Built-in";
    case TransportType::bluetooth:
      return "Bluetooth";
    case TransportType::bluetoothLE:
      return "Bluetooth LE";
    case TransportType::displayPort:
      return "DisplayPort";
    case TransportType::fireWire:
      return "FireWire";
    case TransportType::airPlay:
      return "AirPlay";
    case TransportType::avb:
      return "AVB";
    case TransportType::aggregate:
      return "Aggregate";
    case TransportType::hdmi:
      return "HDMI";
    case TransportType::virtualDevice:
      return "Virtual";
    case TransportType::usb:
      return "USB";
    case TransportType::pci:
      return "PCI";
    case TransportType::thunderbolt:
      return "Thunderbolt";
    case TransportType::unknown:
      break;
  }
  return "Unknown";
}

}  // namespace velorin
