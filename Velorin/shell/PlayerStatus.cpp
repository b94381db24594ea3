#include "shell/PlayerStatus.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "JsonOutput.h"
#include "SignalPathText.h"
#include "foundation/Text.h"
#include "session/PlayerState.h"

namespace velorin {
namespace {

using nlohmann::json;

JsonObject trackObject(const TrackInfo& info) {
  JsonObject track;
  track.add("title", info.track.title)
      .add("artist", info.artist.name)
      .add("album", info.album.title)
      .add("path", info.track.filePath);
  return track;
}

double positionOf(const PlayerState& player) {
  if (player.state() == PlaybackState::stopped) return player.restoredPosition().value_or(0);
  return player.livePosition();
}

/// "title — artist", or the title alone.
std::string titleText(std::string_view title, std::string_view artist) {
  return artist.empty() ? std::string(title) : fmt::format("{} — {}", title, artist);
}

}  // namespace

std::string statusJSON(const PlayerState& player) {
  const auto& current = player.currentTrack();
  JsonObject status;
  status.add("state", nameOf(player.state()))
      .add("loading", player.isLoading())
      .add("position", positionOf(player))
      .add("duration",
           current && player.duration() <= 0 ? current->track.duration : player.duration())
      .add("volume", player.volume())
      .add("shuffle", player.shuffleEnabled())
      .add("repeat", nameOf(player.repeatMode()))
      .add("index", player.timelineIndex())
      .add("count", static_cast<std::uint64_t>(player.timeline().size()));
  if (current) {
    status.add("track", trackObject(*current));
  } else {
    status.addNull("track");
  }
  return status.line();
}

std::optional<std::string> statusText(std::string_view text) {
  const json status = json::parse(text, nullptr, /*allow_exceptions=*/false);
  try {
    std::string lines = fmt::format("{}", status.at("state").get<std::string>());
    if (const json& track = status.at("track"); track.is_object()) {
      lines += ": " + titleText(track.at("title").get<std::string>(),
                                track.at("artist").get<std::string>());
      lines = text::escapeForTerminal(lines);
      lines += fmt::format("\n{} / {}", timeText(status.at("position").get<double>()),
                           timeText(status.at("duration").get<double>()));
      const int count = status.at("count").get<int>();
      if (const int index = status.at("index").get<int>(); index >= 0 && index < count) {
        lines += fmt::format(" · track {} of {}", index + 1, count);
      }
    }
    return lines;
  } catch (const json::exception&) {
    return std::nullopt;
  }
}

std::string activityText(const PlayerState& player) {
  const auto& current = player.currentTrack();
  if (!current || player.state() == PlaybackState::stopped) return "Stopped";
  return fmt::format("{}: {}", player.state() == PlaybackState::playing ? "Playing" : "Paused",
                     titleText(current->track.title, current->artist.name));
}

}  // namespace velorin
