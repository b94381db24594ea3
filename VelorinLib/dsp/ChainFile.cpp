#include "dsp/ChainFile.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cmath>
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

std::string effectNames() {
  std::vector<std::string_view> names;
  for (const DSPEffectType type : allEffectTypes()) names.push_back(namesOf(type).rawValue);
  return fmt::format("{}", fmt::join(names, ", "));
}

/// Fills in what a hand-written entry may leave out, and says what is wrong with it.
std::optional<std::string> complete(json& entry, std::size_t number) {
  if (!entry.is_object()) return fmt::format("entry {} is not an object", number);
  const auto type = entry.find("effectType");
  if (type == entry.end() || !type->is_string()) {
    return fmt::format("entry {} has no \"effectType\"", number);
  }
  if (!effectType(type->get<std::string>())) {
    return fmt::format("entry {}: there is no effect \"{}\", only {}", number,
                       type->get<std::string>(), effectNames());
  }
  if (!entry.contains("id")) entry["id"] = makeUuid();
  if (!entry.contains("enabled")) entry["enabled"] = true;
  return std::nullopt;
}

/// A setting as a number; empty when it is none of the parameter's kind.
std::optional<double> valueOf(const EffectParameter& parameter, const json& value) {
  if (value.is_boolean()) return value.get<bool>() ? 1.0 : 0.0;
  if (value.is_number()) return value.get<double>();
  if (value.is_string()) {
    const auto found = std::ranges::find(parameter.choices, value.get<std::string>());
    if (found == parameter.choices.end()) return std::nullopt;
    return static_cast<double>(found - parameter.choices.begin());
  }
  return std::nullopt;
}

std::string rangeOf(const EffectParameter& parameter) {
  if (!parameter.choices.empty()) {
    return fmt::format("one of {}", fmt::join(parameter.choices, ", "));
  }
  return fmt::format("a number from {:g} to {:g}{}{}", parameter.minimum, parameter.maximum,
                     parameter.unit.empty() ? "" : " ", parameter.unit);
}

class Reader {
 public:
  Result<ChainFile, ChainFileError> read(std::string_view text) {
    json document = json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (document.is_discarded()) return ChainFileError{"not JSON"};
    if (!document.is_object() || !document.contains("entries") || !document["entries"].is_array()) {
      return ChainFileError{"there is no list \"entries\""};
    }
    std::size_t number = 0;
    for (json& entry : document["entries"]) {
      if (const auto fault = complete(entry, ++number)) return ChainFileError{*fault};
    }
    // The rest is checked by whoever reads the stored form.
    const json stored = {{"entries", document["entries"]}};
    auto config = chainConfigFromJSON(stored.dump(-1, ' ', false, json::error_handler_t::replace));
    if (!config) {
      return ChainFileError{
          "an entry stands there twice, or its \"id\", \"enabled\" or \"headphoneProfileId\" is "
          "not of its kind"};
    }
    _file.config = std::move(*config);
    if (document.contains("parameters")) {
      if (const auto fault = readParameters(document["parameters"])) return ChainFileError{*fault};
    }
    return std::move(_file);
  }

 private:
  std::optional<std::string> readParameters(const json& parameters) {
    if (!parameters.is_object()) return "\"parameters\" is not an object";
    for (const auto& [name, settings] : parameters.items()) {
      const auto type = effectType(name);
      if (!type) {
        return fmt::format("parameters: there is no effect \"{}\", only {}", name, effectNames());
      }
      if (!settings.is_object()) return fmt::format("parameters of {}: not an object", name);
      for (const auto& [key, value] : settings.items()) {
        auto fault = readSpecial(*type, key, value);
        if (!fault) fault = readPlain(*type, key, value);
        if (!fault->empty()) return fmt::format("parameters of {}: {}", name, *fault);
      }
    }
    return std::nullopt;
  }

  /// A fault, "" for one that was taken, nothing for one that is not special.
  std::optional<std::string> readSpecial(DSPEffectType type, const std::string& key,
                                         const json& value) {
    if (type == DSPEffectType::headphoneProfile && key == "profile") {
      if (!value.is_string()) return "\"profile\" is not the id of a profile";
      for (DSPChainEntry& entry : _file.config.entries) {
        if (entry.effectType == type) entry.headphoneProfileId = value.get<std::string>();
      }
      return "";
    }
    if (type != DSPEffectType::equalizer) return std::nullopt;
    if (key == "preset") {
      if (!value.is_string()) return "\"preset\" is not the name of a preset";
      _file.equalizerPreset = value.get<std::string>();
      return "";
    }
    if (key == "bands") {
      auto bands = bandsFromJSON(value.dump(-1, ' ', false, json::error_handler_t::replace));
      if (!bands) return bands.error().text;
      _file.equalizerBands = std::move(bands).value();
      return "";
    }
    return std::nullopt;
  }

  std::string readPlain(DSPEffectType type, const std::string& key, const json& value) {
    const auto parameters = _effects.effect(type).parameters();
    const auto found = std::ranges::find(parameters, key, &EffectParameter::name);
    if (found == parameters.end()) {
      std::vector<std::string_view> names;
      for (const EffectParameter& each : parameters) names.push_back(each.name);
      if (type == DSPEffectType::equalizer) names.insert(names.end(), {"preset", "bands"});
      if (type == DSPEffectType::headphoneProfile) names.push_back("profile");
      return fmt::format("there is no \"{}\", only {}", key,
                         names.empty() ? "its switch" : fmt::format("{}", fmt::join(names, ", ")));
    }
    const auto number = valueOf(*found, value);
    if (!number || !(*number >= found->minimum && *number <= found->maximum)) {
      return fmt::format("\"{}\" is not {}", key, rangeOf(*found));
    }
    _file.settings.push_back({type, key, *number});
    return "";
  }

  ChainFile _file;
  DSPEffects _effects;  // only asked what there is to set
};

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
  if (!content) return named(failure);
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
  if (bands) effects.equalizer.setBands(*bands);
  for (const ChainFile::Setting& setting : file.settings) {
    const auto parameters = effects.effect(setting.effect).parameters();
    const auto found = std::ranges::find(parameters, setting.name, &EffectParameter::name);
    if (found != parameters.end()) found->set(setting.value);
  }
  effects.applyChain(file.config.entries);
  return std::nullopt;
}

}  // namespace velorin
