// Picks the backend that the machine has.
#pragma once

#include <memory>
#include <string>

#include "platform/audio/AudioHardware.h"

namespace velorin {

enum class AudioBackendChoice {
  automatic,   ///< PipeWire with ALSA; else ALSA where it has a device; else virtualNull
  pipewire,    ///< PipeWire alone
  alsa,        ///< ALSA alone
  virtualNull  ///< plays into nothing at the pace of a device
};

struct AudioHardwareChoice {
  std::unique_ptr<AudioHardware> hardware;  ///< null when what was asked for is not there
  std::string notice;                       ///< for the user; empty when there is nothing to say
};

/// Any thread but the render thread; takes up to about a second while a server is looked for.
AudioHardwareChoice createAudioHardware(AudioBackendChoice choice);

}  // namespace velorin
