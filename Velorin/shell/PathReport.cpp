#include "shell/PathReport.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "JsonOutput.h"
#include "SignalPathText.h"
#include "TextTable.h"
#include "engine/AudioEngine.h"
#include "foundation/Text.h"
#include "library/metadata/TagText.h"
#include "session/PlayerState.h"
#include "session/SignalPath.h"

namespace velorin {
namespace {

using nlohmann::json;

std::string_view keyOf(SignalPath::Quality quality) {
  switch (quality) {
    case SignalPath::Quality::bitPerfect:
      return "bit-perfect";
    case SignalPath::Quality::lossless:
      return "lossless";
    case SignalPath::Quality::enhanced:
      break;
  }
  return "enhanced";
}

JsonObject stageObject(const SignalPath::Stage& stage) {
  JsonObject object;
  object.add("name", stage.name).add("format", stage.format);
  if (stage.detail) {
    object.add("detail", *stage.detail);
  } else {
    object.addNull("detail");
  }
  object.add("quality", keyOf(stage.quality)).add("icon", stage.icon);
  return object;
}

JsonObject deviceObject(const PlaybackFacts& facts) {
  const OutputReport& output = facts.output;
  JsonObject object;
  object.add("name", facts.deviceName)
      .add("transport", facts.transport)
      .add("backend", output.backend)
      .add("format", output.deviceFormat)
      .add("rate", output.deviceRate)
      .add("bits", output.deviceBits)
      .add("channels", output.deviceChannels)
      .add("exclusive", output.exclusive)
      .add("mixed", output.mixed)
      .add("converted", output.converted)
      .add("volumeUnity", output.volumeUnity)
      .add("xruns", output.xruns)
      .add("source", output.source);
  return object;
}

std::string text(const json& object, const char* key) {
  const json& value = object.at(key);
  return value.is_null() ? std::string() : value.get<std::string>();
}

/// "S24_3LE, 96 kHz, 2 channels, exclusive".
std::string deviceLine(const json& device) {
  std::string line = text(device, "format");
  const auto append = [&line](const std::string& part) {
    line += (line.empty() ? "" : ", ") + part;
  };
  if (const double rate = device.at("rate").get<double>(); rate > 0) append(rateText(rate));
  if (const int channels = device.at("channels").get<int>(); channels > 0) {
    append(fmt::format("{} channel{}", channels, channels == 1 ? "" : "s"));
  }
  append(device.at("exclusive").get<bool>() ? "exclusive" : "shared");
  return line;
}

std::string labelOfKey(const std::string& key) {
  for (const auto quality : {SignalPath::Quality::bitPerfect, SignalPath::Quality::lossless,
                             SignalPath::Quality::enhanced}) {
    if (keyOf(quality) == key) return std::string(labelOf(quality));
  }
  return key;
}

std::string composed(const json& path, int columns) {
  std::string title = text(path, "title");
  if (const std::string artist = text(path, "artist"); !artist.empty()) title += " — " + artist;
  std::string lines = text::escapeForTerminal(title) + "\n";

  TextTable table({{.cut = TextColumn::Cut::atEnd, .least = 12},
                   {},
                   {.cut = TextColumn::Cut::atEnd, .least = 8},
                   {}});
  const auto addRow = [&table](const json& stage) {
    table.addRow({text::escapeForTerminal(text(stage, "name")),
                  text::escapeForTerminal(text(stage, "format")),
                  text::escapeForTerminal(text(stage, "detail")),
                  text::escapeForTerminal(labelOfKey(text(stage, "quality")))});
  };
  for (const json& stage : path.at("stages")) addRow(stage);
  for (const std::string& line : table.lines(columns - 2)) lines += "  " + line + "\n";

  const std::string reason = text(path, "reason");
  lines += fmt::format(
      "{} · {}\n", labelOfKey(text(path, "quality")),
      reason.empty() ? "bit-perfect" : "not bit-perfect: " + text::escapeForTerminal(reason));
  const json& device = path.at("device");
  return lines + fmt::format("read back: {} ({})", text::escapeForTerminal(deviceLine(device)),
                             text::escapeForTerminal(text(device, "source")));
}

}  // namespace

std::optional<std::string> pathJSON(PlayerState& player) {
  const auto& current = player.currentTrack();
  const PlaybackFacts facts = player.engine().facts();
  if (!current || player.state() == PlaybackState::stopped || facts.output.backend.empty()) {
    return std::nullopt;
  }
  const SignalPath path = player.buildSignalPath();
  std::vector<JsonObject> stages;
  for (const SignalPath::Stage& stage : path.stages) stages.push_back(stageObject(stage));
  const bool hasArtist = current->artist.name != kUnknownArtist;
  JsonObject object;
  object.add("state", nameOf(player.state()))
      .add("title", current->track.title)
      .add("artist", hasArtist ? current->artist.name : "")
      .add("quality", keyOf(overallQuality(path.stages)))
      .add("bitPerfect", path.reason.empty())
      .add("reason", path.reason)
      .add("stages", stages)
      .add("device", deviceObject(facts));
  return object.line();
}

std::optional<std::string> pathText(std::string_view line, int columns) {
  const json path = json::parse(line, nullptr, /*allow_exceptions=*/false);
  try {
    return composed(path, columns);
  } catch (const json::exception&) {
    return std::nullopt;
  }
}

}  // namespace velorin
