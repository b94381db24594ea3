#include "platform/audio/AudioHardwareFactory.h"

#include <fmt/format.h>

#include "platform/audio/CombinedAudioHardware.h"
#include "platform/audio/alsa/AlsaAudioHardware.h"
#include "platform/audio/pipewire/PipeWireAudioHardware.h"
#include "platform/audio/virtual/VirtualAudioHardware.h"

namespace velorin {
namespace {

std::unique_ptr<AudioHardware> combine(std::unique_ptr<PipeWireAudioHardware> server) {
  AlsaAudioHardware::System system;
  system.offersDefault = false;
  const PipeWireAudioHardware* pipewire = server.get();
  return std::make_unique<CombinedAudioHardware>(
      std::move(server), std::make_unique<AlsaAudioHardware>(std::move(system)),
      [pipewire](AudioDeviceID device) {
        const auto address = pipewire->alsaAddress(device);
        return address ? fmt::format("alsa:hw:{},{}", address->card, address->device)
                       : std::string();
      });
}

std::unique_ptr<AudioHardware> nullOutput() {
  auto hardware = std::make_unique<VirtualAudioHardware>();
  hardware->addDevice(pacedNullOutput());
  return hardware;
}

AudioHardwareChoice whatThereIs() {
  AudioHardwareChoice choice;
  AudioStatus status;
  if (auto server = PipeWireAudioHardware::create(status)) {
    choice.hardware = combine(std::move(server));
    return choice;
  }
  choice.hardware = std::make_unique<AlsaAudioHardware>();
  if (!choice.hardware->devices().empty()) return choice;
  choice.hardware = nullOutput();
  choice.notice = "No sound device found: playing to the null output";
  return choice;
}

}  // namespace

AudioHardwareChoice createAudioHardware(AudioBackendChoice choice) {
  switch (choice) {
    case AudioBackendChoice::automatic:
      return whatThereIs();
    case AudioBackendChoice::pipewire: {
      AudioStatus status;
      auto server = PipeWireAudioHardware::create(status);
      if (server) return {std::move(server), {}};
      return {nullptr, fmt::format("PipeWire does not answer ({}): start it, or use another "
                                   "sound system",
                                   status.text)};
    }
    case AudioBackendChoice::alsa:
      return {std::make_unique<AlsaAudioHardware>(), {}};
    case AudioBackendChoice::virtualNull:
      return {nullOutput(), {}};
  }
  return {nullptr, "unknown sound system"};
}

}  // namespace velorin
