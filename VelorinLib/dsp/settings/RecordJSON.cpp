#include "dsp/settings/RecordJSON.h"

#include <cmath>

#include "foundation/Base64.h"

namespace velorin::recordJSON {

using nlohmann::json;

namespace {
constexpr const char* kTooDeep = "a value that holds others";
}

Result<ObjectReader, SettingsError> ObjectReader::read(std::string_view text) {
  bool isTooDeep = false;
  const auto keep = [&](int depth, json::parse_event_t event, json&) {
    const bool opens =
        event == json::parse_event_t::object_start || event == json::parse_event_t::array_start;
    if (opens && depth > 0) isTooDeep = true;
    return !isTooDeep;
  };
  json document;
  try {
    document = json::parse(text, keep);
  } catch (const json::parse_error& error) {
    if (isTooDeep) return SettingsError{kTooDeep};
    return SettingsError{fmt::format("not JSON from byte {} on", error.byte)};
  } catch (const json::exception&) {
    return SettingsError{"not JSON: a number is too large"};
  }
  if (isTooDeep) return SettingsError{kTooDeep};
  if (!document.is_object()) return SettingsError{"not an object"};
  return ObjectReader(std::move(document));
}

const json* ObjectReader::find(std::string_view key) {
  if (hasFailed()) return nullptr;
  const auto found = _object.find(key);
  if (found != _object.end()) return &*found;
  _error.text = fmt::format("\"{}\" is missing", key);
  return nullptr;
}

void ObjectReader::fail(std::string_view key, std::string_view what) {
  _error.text = fmt::format("\"{}\" is not {}", key, what);
}

bool ObjectReader::boolean(std::string_view key, bool fallback) {
  const json* value = find(key);
  if (value == nullptr) return fallback;
  if (value->is_boolean()) return value->get<bool>();
  fail(key, "true or false");
  return fallback;
}

double ObjectReader::number(std::string_view key, double fallback) {
  const json* value = find(key);
  if (value == nullptr) return fallback;
  if (value->is_number()) return value->get<double>();
  fail(key, "a number");
  return fallback;
}

double ObjectReader::whole(std::string_view key, double fallback) {
  const double value = number(key, fallback);
  if (value == std::floor(value)) return value;
  fail(key, "a whole number");
  return fallback;
}

std::string ObjectReader::text(std::string_view key, std::string fallback) {
  const json* value = find(key);
  if (value == nullptr) return fallback;
  if (value->is_string()) return value->get<std::string>();
  fail(key, "a text");
  return fallback;
}

Bytes ObjectReader::bytes(std::string_view key) {
  const json* value = find(key);
  if (value == nullptr) return {};
  if (value->is_string()) {
    if (auto decoded = base64::decode(value->get_ref<const std::string&>())) {
      return std::move(*decoded);
    }
  }
  fail(key, "a text in base64");
  return {};
}

std::optional<Bytes> ObjectReader::bytesOrNull(std::string_view key) {
  const json* value = find(key);
  if (value == nullptr || value->is_null()) return std::nullopt;
  return bytes(key);
}

std::string written(const nlohmann::ordered_json& object) {
  return object.dump(-1, ' ', false, json::error_handler_t::replace);
}

double finite(double value) noexcept {
  return std::isfinite(value) ? value : 0;
}

}  // namespace velorin::recordJSON
