#include <fmt/format.h>
#include <fmt/ranges.h>
#include <memory>

#include "Commands.h"
#include "Console.h"
#include "JsonOutput.h"
#include "ResponsePlot.h"
#include "dsp/ChainFile.h"
#include "dsp/presets/EQPresetManager.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

// Of a response: enough for a curve, and few enough for a terminal.
constexpr std::size_t kPlotPoints = 800;
constexpr std::size_t kTextPoints = 31;

/// Prints it all and ends the command. Not piece by piece: a reader may have gone away, and
/// fmt::print throws.
int print(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  return finishOutput();
}

JsonObject json(const EffectParameter& parameter) {
  JsonObject object;
  object.add("name", parameter.name);
  if (parameter.choices.empty()) {
    object.add("minimum", parameter.minimum).add("maximum", parameter.maximum);
    object.add("default", parameter.defaultValue);
    if (!parameter.unit.empty()) object.add("unit", parameter.unit);
  } else {
    std::vector<JsonObject> choices;
    for (const std::string_view choice : parameter.choices) {
      choices.emplace_back().add("name", choice);
    }
    object.add("choices", choices);
    object.add("default", parameter.choices[static_cast<std::size_t>(parameter.defaultValue)]);
  }
  return object;
}

std::string rangeText(const EffectParameter& parameter) {
  if (!parameter.choices.empty()) {
    return fmt::format("{}  [{}]", fmt::join(parameter.choices, ", "),
                       parameter.choices[static_cast<std::size_t>(parameter.defaultValue)]);
  }
  return fmt::format("{:g} to {:g}{}{}  [{:g}]", parameter.minimum, parameter.maximum,
                     parameter.unit.empty() ? "" : " ", parameter.unit, parameter.defaultValue);
}

/// What a chain file can set that is no number.
struct OtherParameter {
  DSPEffectType effect;
  std::string_view name;
  std::string_view takes;
};
constexpr OtherParameter kOthers[] = {
    {DSPEffectType::equalizer, "preset", "a name, see 'velorin dsp presets'"},
    {DSPEffectType::equalizer, "bands", "up to 31, see 'velorin dsp response --help'"},
    {DSPEffectType::headphoneProfile, "profile", "an id, see 'velorin dsp profiles'"},
};

JsonObject json(DSPEffectType type, const std::vector<EffectParameter>& parameters) {
  const EffectNames& names = namesOf(type);
  std::vector<JsonObject> described;
  for (const EffectParameter& parameter : parameters) described.push_back(json(parameter));
  for (const OtherParameter& other : kOthers) {
    if (other.effect != type) continue;
    described.emplace_back().add("name", other.name).add("takes", other.takes);
  }
  JsonObject object;
  object.add("effectType", names.rawValue)
      .add("name", names.displayName)
      .add("parameters", described);
  return object;
}

int list(bool asJson) {
  const auto effects = std::make_unique<DSPEffects>();
  std::vector<JsonObject> objects;
  std::string text = "Effects, and what can be set: to what  [at first]\n\n";
  const auto line = [&](std::string_view name, std::string_view range) {
    text += fmt::format("  {:<20} {}\n", name, range);
  };
  for (const DSPEffectType type : allEffectTypes()) {
    const EffectNames& names = namesOf(type);
    const auto parameters = effects->effect(type).parameters();
    if (asJson) objects.push_back(json(type, parameters));
    text += fmt::format("{:<22} {}\n", names.rawValue, names.displayName);
    for (const EffectParameter& parameter : parameters) line(parameter.name, rangeText(parameter));
    for (const OtherParameter& other : kOthers) {
      if (other.effect == type) line(other.name, other.takes);
    }
  }
  return print(asJson ? JsonObject::list(objects) + "\n" : text);
}

int presets(bool asJson) {
  std::vector<JsonObject> objects;
  std::string lines;
  for (const EQPreset& preset : EQPresetManager::shared().allPresets()) {
    if (asJson) {
      std::vector<JsonObject> bands;
      for (const EQBand& band : preset.bands) {
        bands.emplace_back()
            .add("frequency", band.frequency)
            .add("gain", band.gain)
            .add("q", band.q)
            .add("filterType", static_cast<int>(band.filterType));
      }
      objects.emplace_back()
          .add("name", preset.name)
          .add("isBuiltIn", preset.isBuiltIn)
          .add("bands", bands);
    } else {
      lines +=
          text::escapeForTerminal(preset.name) + (preset.isBuiltIn ? "" : "  (your own)") + "\n";
    }
  }
  return print(asJson ? JsonObject::list(objects) + "\n" : lines);
}

int profiles(bool asJson) {
  HeadphoneProfileDatabase& database = HeadphoneProfileDatabase::shared();
  if (!database.load()) {
    reportError("the headphone profiles cannot be read: is the program installed completely?");
    return kExitFailure;
  }
  std::vector<JsonObject> objects;
  std::string lines;
  for (const HeadphoneProfileRef& profile : database.search("")) {
    if (asJson) {
      objects.emplace_back()
          .add("id", profile->id)
          .add("brand", profile->brand)
          .add("model", profile->model)
          .add("source", profile->source)
          .add("target", profile->target)
          .add("preamp", profile->preamp)
          .add("filters", static_cast<std::uint64_t>(profile->filters.size()));
    } else {
      lines += fmt::format("{:<40} {} {}\n", text::escapeForTerminal(profile->id),
                           text::escapeForTerminal(profile->brand),
                           text::escapeForTerminal(profile->model));
    }
  }
  return print(asJson ? JsonObject::list(objects) + "\n" : lines);
}

std::string tableOf(const ChainResponse& response) {
  std::string text = fmt::format("{:>10}  {:>9}  {:>9}\n", "Hz", "left dB", "right dB");
  for (const ResponsePoint& point : response.points) {
    text += fmt::format("{:>10.1f}  {:>+9.2f}  {:>+9.2f}\n", point.frequency, point.leftDB,
                        point.rightDB);
  }
  return text;
}

JsonObject json(const ChainResponse& response) {
  std::vector<JsonObject> points;
  for (const ResponsePoint& point : response.points) {
    points.emplace_back()
        .add("frequency", point.frequency)
        .add("leftDB", point.leftDB)
        .add("rightDB", point.rightDB);
  }
  std::vector<JsonObject> leftOut;
  for (const DSPEffectType type : response.leftOut) {
    leftOut.emplace_back().add("effectType", namesOf(type).rawValue);
  }
  JsonObject object;
  object.add("sampleRate", response.sampleRate).add("leftOut", leftOut).add("points", points);
  return object;
}

int response(const DspOptions& options) {
  const auto file = readChainFile(options.chain);
  if (!file) {
    reportError(file.error().text);
    return kExitFailure;
  }
  const auto effects = std::make_unique<DSPEffects>();
  if (const auto fault = apply(file.value(), *effects, EQPresetManager::shared())) {
    reportError(text::pathForDisplay(options.chain) + ": " + fault->text);
    return kExitFailure;
  }
  const bool plots = !options.png.empty();
  const ChainResponse measured = measureResponse(*effects, options.sampleRate,
                                                 plots || options.json ? kPlotPoints : kTextPoints);
  for (const DSPEffectType type : measured.leftOut) {
    reportError(
        fmt::format("{} has no frequency response and is left out", namesOf(type).displayName));
  }
  if (options.json) return print(json(measured).line() + "\n");
  if (!plots) return print(tableOf(measured));
  if (const auto fault = writeResponsePlot(measured, options.png)) {
    reportError(*fault);
    return kExitFailure;
  }
  return print(text::pathForDisplay(options.png) + "\n");
}

}  // namespace

int runDsp(const DspOptions& options) {
  switch (options.action) {
    case DspOptions::Action::list:
      return list(options.json);
    case DspOptions::Action::presets:
      return presets(options.json);
    case DspOptions::Action::profiles:
      return profiles(options.json);
    case DspOptions::Action::response:
      break;
  }
  return response(options);
}

}  // namespace velorin
