#include "JsonOutput.h"

#include <nlohmann/json.hpp>

namespace velorin {

struct JsonObject::Impl {
  nlohmann::ordered_json object = nlohmann::ordered_json::object();
};

JsonObject::JsonObject() : _impl(std::make_unique<Impl>()) {}
JsonObject::~JsonObject() = default;
JsonObject::JsonObject(JsonObject&&) noexcept = default;
JsonObject& JsonObject::operator=(JsonObject&&) noexcept = default;

JsonObject& JsonObject::add(std::string_view key, std::string_view value) {
  _impl->object[std::string(key)] = value;
  return *this;
}

JsonObject& JsonObject::add(std::string_view key, bool value) {
  _impl->object[std::string(key)] = value;
  return *this;
}

JsonObject& JsonObject::add(std::string_view key, double value) {
  _impl->object[std::string(key)] = value;
  return *this;
}

JsonObject& JsonObject::add(std::string_view key, std::int64_t value) {
  _impl->object[std::string(key)] = value;
  return *this;
}

JsonObject& JsonObject::add(std::string_view key, std::uint64_t value) {
  _impl->object[std::string(key)] = value;
  return *this;
}

JsonObject& JsonObject::add(std::string_view key, const JsonObject& value) {
  _impl->object[std::string(key)] = value._impl->object;
  return *this;
}

JsonObject& JsonObject::add(std::string_view key, const std::vector<double>& values) {
  _impl->object[std::string(key)] = values;
  return *this;
}

JsonObject& JsonObject::add(std::string_view key, const std::vector<JsonObject>& values) {
  auto& list = _impl->object[std::string(key)] = nlohmann::ordered_json::array();
  for (const JsonObject& value : values) list.push_back(value._impl->object);
  return *this;
}

JsonObject& JsonObject::addNull(std::string_view key) {
  _impl->object[std::string(key)] = nullptr;
  return *this;
}

std::string JsonObject::line() const {
  return _impl->object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string JsonObject::list(const std::vector<JsonObject>& objects) {
  std::string text = "[";
  for (std::size_t i = 0; i < objects.size(); ++i) {
    text += i == 0 ? "\n  " : ",\n  ";
    text += objects[i].line();
  }
  return text + (objects.empty() ? "]" : "\n]");
}

}  // namespace velorin
