#include "shell/InstanceMessage.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <utility>

#include "foundation/Text.h"

namespace velorin {
namespace {

using nlohmann::json;

constexpr int kVersion = 1;
constexpr const char* kVersionKey = "velorin";

constexpr std::array<std::pair<InstanceAction, std::string_view>, 15> kActions{{
    {InstanceAction::open, "open"},
    {InstanceAction::playNow, "playNow"},
    {InstanceAction::playNext, "playNext"},
    {InstanceAction::playLater, "playLater"},
    {InstanceAction::play, "play"},
    {InstanceAction::pause, "pause"},
    {InstanceAction::playPause, "playPause"},
    {InstanceAction::stop, "stop"},
    {InstanceAction::next, "next"},
    {InstanceAction::previous, "previous"},
    {InstanceAction::set, "set"},
    {InstanceAction::foldersChanged, "foldersChanged"},
    {InstanceAction::status, "status"},
    {InstanceAction::path, "path"},
    {InstanceAction::quit, "quit"},
}};

std::optional<InstanceAction> actionOf(std::string_view name) {
  for (const auto& [action, known] : kActions) {
    if (known == name) return action;
  }
  return std::nullopt;
}

bool isUnreserved(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '/' ||
         c == '-' || c == '.' || c == '_' || c == '~';
}

std::string encodedBytes(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size());
  for (const char c : bytes) {
    if (isUnreserved(c)) {
      text += c;
    } else {
      const auto byte = static_cast<std::uint8_t>(c);
      text += '%';
      text += kDigits[byte >> 4];
      text += kDigits[byte & 15];
    }
  }
  return text;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

/// Bytes without NUL, else nothing.
std::optional<std::string> decodedBytes(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '%') {
      const int high = i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
      const int low = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
      if (high < 0 || low < 0) return std::nullopt;
      c = static_cast<char>(high * 16 + low);
      i += 2;
    } else if (!isUnreserved(c)) {
      return std::nullopt;
    }
    if (c == '\0') return std::nullopt;
    bytes += c;
  }
  return bytes;
}

using Bytes = std::optional<std::vector<std::string>>;

/// The texts of a list that the message may have; nothing where it is no such list.
Bytes bytesOf(const json& message, const char* key) {
  std::vector<std::string> all;
  const auto list = message.find(key);
  if (list == message.end()) return all;
  if (!list->is_array()) return std::nullopt;
  for (const json& each : *list) {
    auto bytes = each.is_string() ? decodedBytes(each.get_ref<const std::string&>()) : std::nullopt;
    if (!bytes) return std::nullopt;
    all.push_back(std::move(*bytes));
  }
  return all;
}

bool isAbsolute(const std::string& path) {
  return path.starts_with('/');
}

Result<json, InstanceMessageError> parse(std::string_view line) {
  // Deep nesting would cost the parser's stack; no message of ours holds more than a list.
  const auto limitDepth = [](int depth, json::parse_event_t, json&) { return depth <= 4; };
  json message = json::parse(line, limitDepth, /*allow_exceptions=*/false);
  if (!message.is_object()) return InstanceMessageError{"not a message of Velorin"};
  const auto version = message.find(kVersionKey);
  if (version == message.end() || !version->is_number_integer()) {
    return InstanceMessageError{"not a message of Velorin"};
  }
  if (*version != kVersion) {
    return InstanceMessageError{
        "another version of Velorin is running: end it with 'velorin control quit' of that version "
        "and try again"};
  }
  return message;
}

std::string lineOf(const json& message) {
  return message.dump(-1, ' ', /*ensure_ascii=*/true, json::error_handler_t::replace) + '\n';
}

}  // namespace

std::string_view nameOf(InstanceAction action) noexcept {
  for (const auto& [known, name] : kActions) {
    if (known == action) return name;
  }
  return {};
}

bool takesPaths(InstanceAction action) noexcept {
  return action == InstanceAction::open || action == InstanceAction::playNow ||
         action == InstanceAction::playNext || action == InstanceAction::playLater;
}

std::string encode(const InstanceRequest& request) {
  json message = {{kVersionKey, kVersion}, {"action", nameOf(request.action)}};
  if (!request.paths.empty()) {
    json& paths = message["paths"] = json::array();
    for (const auto& path : request.paths) paths.push_back(encodedBytes(path.native()));
  }
  if (!request.words.empty()) {
    json& words = message["words"] = json::array();
    for (const auto& word : request.words) words.push_back(encodedBytes(word));
  }
  return lineOf(message);
}

std::string encode(const InstanceAnswer& answer) {
  return lineOf({{kVersionKey, kVersion}, {"ok", answer.ok}, {"text", answer.text}});
}

Result<InstanceRequest, InstanceMessageError> decodeRequest(std::string_view line) {
  auto parsed = parse(line);
  if (!parsed) return parsed.error();
  const json& message = parsed.value();
  const auto name = message.find("action");
  const auto action = name != message.end() && name->is_string()
                          ? actionOf(name->get_ref<const std::string&>())
                          : std::nullopt;
  if (!action) return InstanceMessageError{"the running player does not know this command"};
  const bool isMisplaced = (message.contains("paths") && !takesPaths(*action)) ||
                           (message.contains("words") && *action != InstanceAction::set);
  if (isMisplaced) return InstanceMessageError{"not a message of Velorin"};
  const Bytes paths = bytesOf(message, "paths");
  if (!paths || !std::ranges::all_of(*paths, isAbsolute)) {
    return InstanceMessageError{"a path in the message is not absolute or misspelt"};
  }
  Bytes words = bytesOf(message, "words");
  if (!words) return InstanceMessageError{"a word in the message is misspelt"};
  return InstanceRequest{*action, {paths->begin(), paths->end()}, std::move(*words)};
}

Result<InstanceAnswer, InstanceMessageError> decodeAnswer(std::string_view line) {
  auto parsed = parse(line);
  if (!parsed) return parsed.error();
  const json& message = parsed.value();
  const auto ok = message.find("ok");
  const auto text = message.find("text");
  if (ok == message.end() || !ok->is_boolean() || text == message.end() || !text->is_string()) {
    return InstanceMessageError{"not an answer of Velorin"};
  }
  return InstanceAnswer{ok->get<bool>(), text->get<std::string>()};
}

}  // namespace velorin
