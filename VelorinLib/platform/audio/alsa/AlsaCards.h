// The playback PCMs of the machine's sound cards, and who holds one.
//
// Any thread but the render thread; the functions open control devices and read /sys and /proc.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/audio/AudioTypes.h"

namespace velorin {

/// A playback PCM that can be opened by name.
struct AlsaPcmAddress {
  std::string pcm;  ///< what snd_pcm_open() takes: "hw:0,0", "default", a name of the user's
  std::string uid;  ///< "alsa:hw:PCH,0": by card id, which survives a change of card order
  std::string name;
  std::string manufacturer;  ///< empty when unknown
  TransportType transport = TransportType::unknown;
  int card = -1;  ///< -1 for a PCM that is not a card's own
  int device = -1;
  std::string control = {};  ///< whose mixer has its volume: "hw:0", "default"; empty for none
  bool isHardware() const noexcept { return card >= 0; }
  bool operator==(const AlsaPcmAddress&) const = default;
};

/// Every playback PCM of every card, by card and device number. Empty without cards.
std::vector<AlsaPcmAddress> alsaHardware();

/// How a card is attached, from its driver ("USB-Audio", "HDA-Intel" …), the PCM's name ("HDMI 0")
/// and the kernel's bus ("usb", "pci", "firewire", "platform"; empty when unknown).
TransportType alsaTransport(std::string_view driver, std::string_view pcmName,
                            std::string_view bus) noexcept;

/// "hw:0,3", "hw:PCH,3", "hw:CARD=PCH,DEV=3", "hw:1" taken apart; nullopt for any other name.
struct HardwareName {
  std::string card;  ///< number or id
  int device = 0;
};
std::optional<HardwareName> parseHardwareName(std::string_view pcm);

/// The process that has the hw PCM open, 0 when nobody does or it cannot be learned: the owner in
/// /proc/asound, else a process of ours to see with the PCM's node among its descriptors.
pid_t alsaHolder(int card, int device);

/// "pipewire (process 812)"; "process 812" when the name is not readable.
std::string processDescription(pid_t process);

/// What the kernel granted a running hw PCM, from the text of /proc/asound/…/hw_params.
struct KernelParams {
  std::string format;  ///< "S32_LE"
  std::uint32_t channels = 0;
  double rate = 0;  ///< exact: from the fraction in brackets
  std::uint32_t periodFrames = 0;
  std::uint32_t bufferFrames = 0;
};
/// nullopt for "closed", "no setup" and anything else without a format.
std::optional<KernelParams> parseKernelParams(std::string_view text);

}  // namespace velorin
