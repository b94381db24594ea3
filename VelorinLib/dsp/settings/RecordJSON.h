// What the JSON forms of snapshot and profile share. Brings nlohmann's header: for sources only.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "dsp/settings/SettingsError.h"
#include "foundation/Result.h"

namespace velorin::recordJSON {

using Bytes = std::vector<std::uint8_t>;

/// The members of an object, asked for by name. The first that is missing or of another kind is
/// the error; from then on every answer is the fallback.
class ObjectReader {
 public:
  /// Values that hold others are of no use to a record, and text nested without end must cost
  /// nothing: such a text is an error.
  static Result<ObjectReader, SettingsError> read(std::string_view text);

  bool boolean(std::string_view key, bool fallback);
  double number(std::string_view key, double fallback);
  /// A number without a fraction.
  double whole(std::string_view key, double fallback);
  std::string text(std::string_view key, std::string fallback);
  /// A text in base64.
  Bytes bytes(std::string_view key);
  /// The same or null, for none.
  std::optional<Bytes> bytesOrNull(std::string_view key);

  bool hasFailed() const noexcept { return !_error.text.empty(); }
  const SettingsError& error() const noexcept { return _error; }

 private:
  explicit ObjectReader(nlohmann::json object) : _object(std::move(object)) {}
  const nlohmann::json* find(std::string_view key);
  void fail(std::string_view key, std::string_view what);

  nlohmann::json _object;
  SettingsError _error;
};

/// Compact; what is no UTF-8 is replaced.
std::string written(const nlohmann::ordered_json& object);
/// A number as JSON has it: one that is not finite, which JSON lacks, as 0.
double finite(double value) noexcept;

}  // namespace velorin::recordJSON
