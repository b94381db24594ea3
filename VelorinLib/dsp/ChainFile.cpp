#include "dsp/ChainFile.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "dsp/DSPEffects.h"
#include "dsp/presets/EQPresetManager.h"
#include "foundation/AtomicFile.h"
#include "foundation/Text.h"
#include "foundation/Uuid.h"

namespace velorin {
namespace {

using nlohmann::json;

constexpr std::uintmax_t kLargestFile = 4 << 20;

/// "line 3, column 7", both from 1.
std::string placeOf(std::string_view text, std::size_t byte) {
  const std::string_view before = text.substr(0, byte > 0 ? byte - 1 : 0);
  const std::size_t lastBreak = before.rfind('\n');
  return fmt::format("line {}, column {}", 1 + std::ranges::count(before, '\n'),
                     before.size() - (lastBreak == before.npos ? 0 : lastBreak + 1) + 1);
}

Result<json, ChainFileError> parse(std::string_view text) {
  // Values are copied and written by recursion: what is nested without end must not come so far.
  constexpr int kDeepest = 16;
  bool isTooDeep = false;
  const auto keep = [&](int depth, json::parse_event_t, json&) {
    if (depth > kDeepest) isTooDeep = true;
    return depth <= kDeepest;
  };
  try {
    json document = json::parse(text, keep);
    if (isTooDeep) return ChainFileError{"nested too deeply"};
    return document;
  } catch (const json::parse_error& error) {
    return ChainFileError{"not JSON from " + placeOf(text, error.byte) + " on"};
  } catch (const json::exception&) {
    return ChainFileError{"not JSON: a number is too large"};
  }
}

std::string written(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string rangeOf(const EffectParameter& parameter) {
  if (!parameter.choices.empty()) {
    return fmt::format("one of {}", fmt::join(parameter.choices, ", "));
  }
  return fmt::format("a number from {:g} to {:g}{}{}", parameter.minimum, parameter.maximum,
                     parameter.unit.empty() ? "" : " ", parameter.unit);
}

/// A setting as a number; empty when it is none of the parameter's kind, or outside its range.
std::optional<double> valueOf(const EffectParameter& parameter, const json& value) {
  if (!parameter.choices.empty()) {
    if (!value.is_string()) return std::nullopt;
    const auto found = std::ranges::find(parameter.choices, value.get<std::string>());
    if (found == parameter.choices.end()) return std::nullopt;
    return static_cast<double>(found - parameter.choices.begin());
  }
  if (!value.is_number()) return std::nullopt;
  const auto number = value.get<double>();
  if (!(number >= parameter.minimum && number <= parameter.maximum)) return std::nullopt;
  return number;
}

/// What is wrong; empty when nothing is.
using Fault = std::string;

class Reader {
 public:
  Result<ChainFile, ChainFileError> read(std::string_view text) {
    const auto document = parse(text);
    if (!document) return document.error();
    if (Fault fault = readDocument(document.value()); !fault.empty()) {
      return ChainFileError{std::move(fault)};
    }
    return std::move(_file);
  }

 private:
  Fault readDocument(const json& document) {
    if (!document.is_object()) return "not an object";
    const auto entries = document.find("entries");
    if (entries == document.end() || !entries->is_array()) return "there is no list \"entries\"";
    for (const json& entry : *entries) {
      if (Fault fault = readEntry(entry); !fault.empty()) {
        return fmt::format("entry {}: {}", _file.config.entries.size() + 1, fault);
      }
    }
    for (const auto& [key, value] : document.items()) {
      if (key == "entries") continue;
      if (key != "parameters") {
        return fmt::format("there is no \"{}\", only entries, parameters", key);
      }
      if (Fault fault = readParameters(value); !fault.empty()) return "parameters: " + fault;
    }
    return {};
  }

  /// The entry, after all that may be left out was filled in.
  Fault readEntry(json entry) {
    if (!entry.is_object()) return "not an object";
    for (const auto& [key, value] : entry.items()) {
      if (key != "effectType" && key != "enabled" && key != "headphoneProfileId" && key != "id") {
        return fmt::format("there is no \"{}\", only effectType, enabled, headphoneProfileId, id",
                           key);
      }
    }
    if (!entry.contains("effectType")) return "\"effectType\" is missing";
    const json& name = entry["effectType"];
    const auto type = name.is_string() ? effectType(name.get<std::string>()) : std::nullopt;
    if (!type) return noEffect(name.is_string() ? name.get<std::string>() : written(name));
    for (const DSPChainEntry& earlier : _file.config.entries) {
      if (earlier.effectType == *type) return "a second " + name.get<std::string>();
    }
    if (!entry.contains("id")) entry["id"] = makeUuid();
    if (!entry.contains("enabled")) entry["enabled"] = true;
    if (!entry["enabled"].is_boolean()) return "\"enabled\" is not true or false";
    if (entry.contains("headphoneProfileId") && !entry["headphoneProfileId"].is_string()) {
      return "\"headphoneProfileId\" is not a text";
    }
    // What an entry is, the stored form says.
    const auto config = chainConfigFromJSON(written({{"entries", json::array({entry})}}));
    if (!config) return "\"id\" is not a UUID";
    _file.config.entries.push_back(config->entries.front());
    return {};
  }

  Fault readParameters(const json& parameters) {
    if (!parameters.is_object()) return "not an object";
    for (const auto& [name, settings] : parameters.items()) {
      const auto type = effectType(name);
      if (!type) return noEffect(name);
      if (!settings.is_object()) return name + ": not an object";
      for (const auto& [key, value] : settings.items()) {
        if (Fault fault = readSetting(*type, key, value); !fault.empty()) {
          return name + ": " + fault;
        }
      }
    }
    if (_file.equalizerPreset && _file.equalizerBands) {
      return "equalizer: \"preset\" and \"bands\" exclude each other";
    }
    return {};
  }

  Fault readSetting(DSPEffectType type, const std::string& key, const json& value) {
    if (type == DSPEffectType::equalizer && key == "preset") {
      if (!value.is_string()) return "\"preset\" is not the name of a preset";
      _file.equalizerPreset = value.get<std::string>();
      return {};
    }
    if (type == DSPEffectType::equalizer && key == "bands") return readBands(value);
    if (type == DSPEffectType::headphoneProfile && key == "profile") return readProfile(value);

    const auto parameters = _effects.effect(type).parameters();
    const auto found = std::ranges::find(parameters, key, &EffectParameter::name);
    if (found == parameters.end()) return noSetting(type, key, parameters);
    const auto number = valueOf(*found, value);
    if (!number) return fmt::format("\"{}\" is not {}", key, rangeOf(*found));
    _file.settings.push_back({type, key, *number});
    return {};
  }

  Fault readProfile(const json& value) {
    if (!value.is_string()) return "\"profile\" is not the id of a profile";
    for (DSPChainEntry& entry : _file.config.entries) {
      if (entry.effectType != DSPEffectType::headphoneProfile) continue;
      entry.headphoneProfileId = value.get<std::string>();
      return {};
    }
    return "no entry has this effect";
  }

  Fault readBands(const json& value) {
    auto read = bandsFromJSON(written(value));
    if (!read) return read.error().text;
    const std::vector<EQBand>& bands = read.value();
    if (bands.size() > kEQGrid.size()) {
      return fmt::format("{} bands, where {} are the most", bands.size(), kEQGrid.size());
    }
    for (std::size_t i = 0; i < bands.size(); ++i) {
      if (bands[i].frequency <= 0) return fmt::format("band {}: no frequency above 0", i + 1);
      if (bands[i] != bands[i].clamped()) {
        return fmt::format("band {}: \"gain\" is not {:g} to {:g} dB or \"q\" not {:g} to {:g}",
                           i + 1, EQBand::kLowestGain, EQBand::kHighestGain, EQBand::kLowestQ,
                           EQBand::kHighestQ);
      }
    }
    _file.equalizerBands = std::move(read).value();
    return {};
  }

  static Fault noEffect(std::string_view name) {
    std::vector<std::string_view> names;
    for (const DSPEffectType type : allEffectTypes()) names.push_back(namesOf(type).rawValue);
    return fmt::format("there is no effect \"{}\", only {}", name, fmt::join(names, ", "));
  }

  static Fault noSetting(DSPEffectType type, std::string_view key,
                         const std::vector<EffectParameter>& parameters) {
    std::vector<std::string_view> names;
    for (const EffectParameter& each : parameters) names.push_back(each.name);
    if (type == DSPEffectType::equalizer) names = {"preset", "bands"};
    if (type == DSPEffectType::headphoneProfile) names = {"profile"};
    if (names.empty()) return fmt::format("there is no \"{}\", nothing can be set", key);
    return fmt::format("there is no \"{}\", only {}", key, fmt::join(names, ", "));
  }

  ChainFile _file;
  DSPEffects _effects;  // only asked what there is to set
};

/// An equalizer has all of its bands: those that are not given change nothing.
std::vector<EQBand> filledUp(std::vector<EQBand> bands) {
  const std::vector<EQBand> flat = flatBands();
  for (std::size_t i = bands.size(); i < flat.size(); ++i) bands.push_back(flat[i]);
  return bands;
}

}  // namespace

Result<ChainFile, ChainFileError> chainFileFromJSON(std::string_view text) {
  return std::make_unique<Reader>()->read(text);
}

Result<ChainFile, ChainFileError> readChainFile(const std::filesystem::path& path) {
  const auto named = [&](const std::string& text) {
    return ChainFileError{text::pathForDisplay(path) + ": " + text};
  };
  std::error_code ignored;
  if (std::filesystem::file_size(path, ignored) > kLargestFile && !ignored) {
    return named("too large for a chain");
  }
  std::string failure;
  const auto content = readFile(path, failure);
  if (!content) return ChainFileError{failure};
  auto file = chainFileFromJSON(*content);
  if (!file) return named(file.error().text);
  return file;
}

std::optional<ChainFileError> apply(const ChainFile& file, DSPEffects& effects,
                                    const EQPresetManager& presets) {
  std::optional<std::vector<EQBand>> bands = file.equalizerBands;
  if (!bands && file.equalizerPreset) {
    const auto preset = presets.preset(*file.equalizerPreset);
    if (!preset) {
      return ChainFileError{"there is no equalizer preset \"" + *file.equalizerPreset +
                            "\": see 'velorin dsp presets'"};
    }
    bands = preset->bands;
  }
  for (const DSPChainEntry& entry : file.config.entries) {
    if (entry.headphoneProfileId && !effects.knowsProfile(*entry.headphoneProfileId)) {
      return ChainFileError{"there is no headphone profile \"" + *entry.headphoneProfileId +
                            "\": see 'velorin dsp profiles'"};
    }
  }
  if (bands) effects.equalizer.setBands(filledUp(std::move(*bands)));
  for (const ChainFile::Setting& setting : file.settings) {
    const auto parameters = effects.effect(setting.effect).parameters();
    const auto found = std::ranges::find(parameters, setting.name, &EffectParameter::name);
    if (found != parameters.end()) found->set(setting.value);
  }
  effects.applyChain(file.config.entries);
  return std::nullopt;
}

}  // namespace velorin
