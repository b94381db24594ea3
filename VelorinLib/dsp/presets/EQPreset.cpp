#include "dsp/presets/EQPreset.h"

#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>

namespace velorin {
namespace {

using nlohmann::json;

constexpr int kIndent = 2;

json jsonFrom(std::span<const EQBand> bands) {
  auto array = json::array();
  for (const EQBand& band : bands) {
    array.push_back({{"frequency", band.frequency},
                     {"gain", band.gain},
                     {"q", band.q},
                     {"filterType", static_cast<int>(band.filterType)}});
  }
  return array;
}

std::string written(const json& value) {
  return value.dump(kIndent, ' ', false, json::error_handler_t::replace);
}

bool readNumber(const json& object, const char* key, double& out) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number()) return false;
  out = found->get<double>();
  return std::isfinite(out);
}

bool readType(const json& object, EQBand::FilterType& out) {
  double value = 0;
  if (!readNumber(object, "filterType", value)) return false;
  constexpr int kLast = static_cast<int>(EQBand::FilterType::highPass);
  if (value != std::floor(value) || value < 0 || value > kLast) return false;
  out = static_cast<EQBand::FilterType>(static_cast<int>(value));
  return true;
}

Result<std::vector<EQBand>, PresetError> bandsFrom(const json& array) {
  if (!array.is_array()) return PresetError{"\"bands\" is not an array"};
  std::vector<EQBand> bands;
  bands.reserve(array.size());
  for (const json& object : array) {
    const auto wrong = [&](const char* key) {
      return PresetError{
          fmt::format("band {}: \"{}\" is missing or not of its kind", bands.size() + 1, key)};
    };
    EQBand band;
    if (!object.is_object()) {
      return PresetError{fmt::format("band {}: not an object", bands.size() + 1)};
    }
    if (!readNumber(object, "frequency", band.frequency)) return wrong("frequency");
    if (!readNumber(object, "gain", band.gain)) return wrong("gain");
    if (!readNumber(object, "q", band.q)) return wrong("q");
    if (!readType(object, band.filterType)) return wrong("filterType");
    bands.push_back(band);
  }
  return bands;
}

json parsed(std::string_view text) {
  return json::parse(text, nullptr, /*allow_exceptions=*/false);
}

}  // namespace

std::string toJSON(const EQPreset& preset) {
  return written(
      {{"name", preset.name}, {"isBuiltIn", preset.isBuiltIn}, {"bands", jsonFrom(preset.bands)}});
}

Result<EQPreset, PresetError> presetFromJSON(std::string_view text) {
  const json object = parsed(text);
  if (object.is_discarded()) return PresetError{"not JSON"};
  if (!object.is_object()) return PresetError{"not an object"};
  const auto name = object.find("name");
  if (name == object.end() || !name->is_string()) return PresetError{"\"name\" is not a text"};
  const auto isBuiltIn = object.find("isBuiltIn");
  if (isBuiltIn == object.end() || !isBuiltIn->is_boolean()) {
    return PresetError{"\"isBuiltIn\" is not true or false"};
  }
  const auto array = object.find("bands");
  if (array == object.end()) return PresetError{"\"bands\" is missing"};
  auto bands = bandsFrom(*array);
  if (!bands) return bands.error();
  return EQPreset{name->get<std::string>(), std::move(bands).value(), isBuiltIn->get<bool>()};
}

std::string bandsToJSON(std::span<const EQBand> bands) {
  return written(jsonFrom(bands));
}

Result<std::vector<EQBand>, PresetError> bandsFromJSON(std::string_view text) {
  const json array = parsed(text);
  if (array.is_discarded()) return PresetError{"not JSON"};
  return bandsFrom(array);
}

}  // namespace velorin
