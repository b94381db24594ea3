// The properties of a server object, copied, since the server's own are valid during a call only.
#pragma once

#include <spa/utils/dict.h>

#include <charconv>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace velorin {

class PipeWireProperties {
 public:
  PipeWireProperties() = default;
  explicit PipeWireProperties(const spa_dict* dict) { assign(dict); }

  void assign(const spa_dict* dict) {
    if (!dict) return;
    _values.clear();
    for (std::uint32_t i = 0; i < dict->n_items; ++i) {
      if (dict->items[i].value) _values[dict->items[i].key] = dict->items[i].value;
    }
  }

  /// Empty when absent.
  std::string text(std::string_view key) const {
    const auto found = _values.find(key);
    return found == _values.end() ? std::string() : found->second;
  }

  /// nullopt when absent or not a whole number.
  std::optional<int> number(std::string_view key) const {
    const std::string value = text(key);
    int result = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), result);
    if (error != std::errc() || end != value.data() + value.size()) return std::nullopt;
    return result;
  }

  bool isTrue(std::string_view key) const {
    const std::string value = text(key);
    return value == "true" || value == "1";
  }

 private:
  std::map<std::string, std::string, std::less<>> _values;
};

}  // namespace velorin
