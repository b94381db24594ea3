// What the player does now, for another process to show.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velorin {

class PlayerState;

/// One line of JSON with the keys
///   state     "stopped", "playing" or "paused"       loading   true while a track is opened
///   position, duration  seconds                      volume    0 to 1
///   shuffle   true or false                          repeat    "off", "all" or "one"
///   index, count  place in the timeline from 0, and its length; index -1 without one
///   track     null, or an object with title, artist, album and path
/// While nothing plays, position is where the next play begins. Main thread.
std::string statusJSON(const PlayerState& player);

/// The same for people, in lines, escaped for a terminal; nothing for text that is no such JSON.
/// Pure.
std::optional<std::string> statusText(std::string_view json);

/// "Playing: title — artist": what goes on in one line of any text. Main thread.
std::string activityText(const PlayerState& player);

}  // namespace velorin
