#include "dsp/DSPChainConfig.h"

#include <nlohmann/json.hpp>
#include <set>

#include "foundation/Uuid.h"

namespace velorin {
namespace {

using nlohmann::json;

template <class Type>
std::optional<Type> field(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end()) return std::nullopt;
  if constexpr (std::is_same_v<Type, bool>) {
    if (!found->is_boolean()) return std::nullopt;
  } else {
    if (!found->is_string()) return std::nullopt;
  }
  return found->get<Type>();
}

std::optional<DSPChainEntry> entryFrom(const json& object) {
  if (!object.is_object()) return std::nullopt;
  const auto id = field<std::string>(object, "id");
  const auto typeName = field<std::string>(object, "effectType");
  const auto enabled = field<bool>(object, "enabled");
  if (!id || !typeName || !enabled || !isUuid(*id)) return std::nullopt;
  const auto type = effectType(*typeName);
  if (!type) return std::nullopt;
  DSPChainEntry entry{*id, *type, *enabled, std::nullopt};
  for (char& c : entry.id) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  if (const auto profile = object.find("headphoneProfileId");
      profile != object.end() && !profile->is_null()) {
    if (!profile->is_string()) return std::nullopt;
    entry.headphoneProfileId = profile->get<std::string>();
  }
  return entry;
}

}  // namespace

DSPChainConfig defaultChainConfig() {
  DSPChainConfig config;
  for (const auto type :
       {DSPEffectType::replayGain, DSPEffectType::equalizer, DSPEffectType::dither}) {
    config.entries.push_back({makeUuid(), type, false, std::nullopt});
  }
  return config;
}

std::string toJSON(const DSPChainConfig& config) {
  auto entries = nlohmann::ordered_json::array();
  for (const DSPChainEntry& entry : config.entries) {
    nlohmann::ordered_json object;
    object["id"] = entry.id;
    object["effectType"] = namesOf(entry.effectType).rawValue;
    object["enabled"] = entry.enabled;
    if (entry.headphoneProfileId) object["headphoneProfileId"] = *entry.headphoneProfileId;
    entries.push_back(std::move(object));
  }
  nlohmann::ordered_json object;
  object["entries"] = std::move(entries);
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::optional<DSPChainConfig> chainConfigFromJSON(std::string_view text) {
  const json document = json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!document.is_object() || !document.contains("entries")) return std::nullopt;
  const json& entries = document["entries"];
  if (!entries.is_array()) return std::nullopt;
  DSPChainConfig config;
  std::set<DSPEffectType> seen;
  for (const json& object : entries) {
    auto entry = entryFrom(object);
    if (!entry || !seen.insert(entry->effectType).second) return std::nullopt;
    config.entries.push_back(std::move(*entry));
  }
  return config;
}

}  // namespace velorin
