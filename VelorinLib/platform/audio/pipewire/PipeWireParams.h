// PipeWire's parameter objects ("pods") to plain values and back. What is parsed comes from the
// server; anything malformed or unknown is skipped.
#pragma once

#include <spa/param/audio/raw.h>
#include <spa/pod/pod.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/audio/AudioTypes.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

/// What a sink can run at: all its EnumFormat parameters together.
struct PipeWireOffer {
  /// The single rates of a list; for a range those of the common rates from 8 to 768 kHz that lie
  /// in it. Ascending.
  std::vector<std::uint32_t> rates;
  std::vector<PhysicalFormat> formats;   ///< each once, in the sink's order
  std::uint32_t channels = 0;            ///< the most
  std::vector<std::uint32_t> positions;  ///< SPA_AUDIO_CHANNEL_…, of as many channels, or empty

  bool offers(double rate) const noexcept;
};

/// What a sink runs at: its Format parameter.
struct PipeWireFormat {
  std::string name;  ///< "S32LE", "F32P" …
  PhysicalFormat physical;
  std::uint32_t rate = 0;
};

/// The gains of a node: linear factors, 1 is unity.
struct PipeWireGains {
  std::vector<float> channels;  ///< channelVolumes; empty when the node has none
  std::vector<float> soft;      ///< softVolumes: what of them the server does itself
  float master = 1;
  bool muted = false;
  bool softMuted = false;

  /// The server scales and silences nothing. byHardware: channelVolumes are those of the card's
  /// own mixer, the server only does the rest.
  bool isUnity(bool byHardware = false) const noexcept;
  bool operator==(const PipeWireGains&) const = default;
};

/// One way out of a card ("Headphones", "Line Out"), with the card's own volume control.
struct PipeWireRoute {
  std::int32_t index = -1;
  std::int32_t device = -1;  ///< card.profile.device of the sinks it belongs to
  bool isOutput = false;
  bool hasHardwareVolume = false;
};

/// Adds to `offer`, which is that of several sinks played as one, what one more of them can: its
/// formats, and of the rates those that they share. Without a common rate the first sink's stay,
/// for the server converts.
void restrictOffer(PipeWireOffer& offer, const PipeWireOffer& sink);

/// Adds one EnumFormat parameter.
void addFormatOffer(const spa_pod* param, PipeWireOffer& offer);
std::optional<PipeWireFormat> parseFormat(const spa_pod* param);
/// Properties that the parameter does not hold keep their values in `gains`.
void updateGains(const spa_pod* param, PipeWireGains& gains);

/// Frames at that rate that a port delays, the quantum itself not counted; nullopt for a parameter
/// of the other direction.
std::optional<std::uint32_t> parseInputLatency(const spa_pod* param, double rate);
std::optional<PipeWireRoute> parseRoute(const spa_pod* param);

/// Memory for a parameter that is being built.
using PipeWirePodBuffer = std::array<std::byte, 4096>;

/// EnumFormat of a stream of the unit's input format (checked before).
const spa_pod* buildStreamFormat(PipeWirePodBuffer& buffer, const StreamFormat& format,
                                 std::span<const std::uint32_t> positions);
/// Props that set channelVolumes.
const spa_pod* buildGains(PipeWirePodBuffer& buffer, std::span<const float> channels);

/// Route that sets the channelVolumes of a card's way out, for the session manager to remember.
const spa_pod* buildRouteGains(PipeWirePodBuffer& buffer, const PipeWireRoute& route,
                               std::span<const float> channels);

/// The usual speaker positions of so many channels; beyond 8 they are numbered.
std::vector<std::uint32_t> usualPositions(std::uint32_t channels);

}  // namespace velorin
