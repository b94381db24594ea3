// The signal path of the running player, for another process to show.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velorin {

class PlayerState;

/// One line of JSON with the keys
///   state       "playing" or "paused"       title, artist   of what is heard
///   quality     "bit-perfect", "lossless" or "enhanced": of the whole path
///   bitPerfect  true or false               reason          why not, empty when it is
///   stages      a list, from the file to the device, of objects with name, format, detail (text or
///               null), quality and icon
///   device      what the output was read back to do: name, transport, backend, format, rate in Hz,
///               bits, channels, exclusive, mixed, converted, volumeUnity, xruns, source
/// Nothing while nothing plays. Main thread; asks the device.
std::optional<std::string> pathJSON(PlayerState& player);

/// The same for people, in lines of at most so many columns, escaped for a terminal; nothing for
/// text that is no such JSON. Pure.
std::optional<std::string> pathText(std::string_view json, int columns);

}  // namespace velorin
