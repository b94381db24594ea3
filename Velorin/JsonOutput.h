// JSON text for `--json` and event files, without the weight of a JSON library in every file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace velorin {

/// One JSON object whose members keep their order. Text that is not UTF-8 gets U+FFFD in place of
/// the foreign bytes; a number that JSON cannot hold (NaN, infinity) becomes null.
class JsonObject {
 public:
  JsonObject();
  ~JsonObject();
  JsonObject(JsonObject&&) noexcept;
  JsonObject& operator=(JsonObject&&) noexcept;

  JsonObject& add(std::string_view key, std::string_view value);
  JsonObject& add(std::string_view key, const char* value) {
    return add(key, std::string_view(value));
  }
  JsonObject& add(std::string_view key, bool value);
  JsonObject& add(std::string_view key, double value);
  JsonObject& add(std::string_view key, std::int64_t value);
  JsonObject& add(std::string_view key, std::uint64_t value);
  JsonObject& add(std::string_view key, int value) {
    return add(key, static_cast<std::int64_t>(value));
  }
  JsonObject& add(std::string_view key, std::uint32_t value) {
    return add(key, static_cast<std::uint64_t>(value));
  }
  JsonObject& add(std::string_view key, const JsonObject& value);
  JsonObject& add(std::string_view key, const std::vector<double>& values);
  JsonObject& add(std::string_view key, const std::vector<JsonObject>& values);
  JsonObject& addNull(std::string_view key);

  /// On one line.
  std::string line() const;

  /// A list of objects, one to a line.
  static std::string list(const std::vector<JsonObject>& objects);

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
