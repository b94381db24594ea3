#include "dsp/presets/HeadphoneProfileDatabase.h"

#include <fmt/format.h>

#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>
#include <utility>

#include "foundation/AtomicFile.h"
#include "foundation/Log.h"
#include "foundation/Resources.h"
#include "foundation/Result.h"
#include "foundation/Unicode.h"

namespace velorin {

namespace fs = std::filesystem;

namespace {

using nlohmann::json;

/// Why a file cannot be used. Thrown within this file only.
struct Undecodable {
  std::string reason;
};

constexpr std::array<std::pair<std::string_view, PEQFilterType>, 3> kFilterTypes = {
    {{"PK", PEQFilterType::peaking},
     {"LSC", PEQFilterType::lowShelf},
     {"HSC", PEQFilterType::highShelf}}};

constexpr std::array<std::pair<std::string_view, HeadphoneForm>, 3> kForms = {
    {{"over-ear", HeadphoneForm::overEar},
     {"in-ear", HeadphoneForm::inEar},
     {"earbud", HeadphoneForm::earbud}}};

const json& member(const json& object, const char* key) {
  if (!object.is_object()) throw Undecodable{"an object was expected"};
  const auto found = object.find(key);
  if (found == object.end()) throw Undecodable{fmt::format("\"{}\" is missing", key)};
  return *found;
}

std::string text(const json& object, const char* key) {
  const json& value = member(object, key);
  if (!value.is_string()) throw Undecodable{fmt::format("\"{}\" is not a text", key)};
  return value.get<std::string>();
}

double number(const json& object, const char* key) {
  const json& value = member(object, key);
  if (!value.is_number()) throw Undecodable{fmt::format("\"{}\" is not a number", key)};
  return value.get<double>();
}

template <class Case>
Case oneOf(const std::array<std::pair<std::string_view, Case>, 3>& names, const json& object,
           const char* key) {
  const std::string name = text(object, key);
  for (const auto& [raw, value] : names) {
    if (raw == name) return value;
  }
  throw Undecodable{fmt::format("\"{}\" has the unknown value \"{}\"", key, name)};
}

HeadphoneProfile profileFrom(const json& object) {
  HeadphoneProfile profile{text(object, "id"),       text(object, "model"),
                           text(object, "brand"),    oneOf(kForms, object, "form"),
                           text(object, "source"),   text(object, "target"),
                           number(object, "preamp"), {}};
  const json& filters = member(object, "filters");
  if (!filters.is_array()) throw Undecodable{"\"filters\" is not an array"};
  profile.filters.reserve(filters.size());
  for (const json& filter : filters) {
    profile.filters.push_back({oneOf(kFilterTypes, filter, "type"), number(filter, "fc"),
                               number(filter, "gain"), number(filter, "q")});
  }
  return profile;
}

/// Decodes each profile as soon as it has been read and lets its JSON go: a file of many thousand
/// profiles is never held as a tree.
class ProfileReader {
 public:
  std::vector<HeadphoneProfileRef> read(std::string_view bytes) {
    const auto onEvent = [this](int depth, json::parse_event_t event, json& value) {
      return keep(depth, event, value);
    };
    const json document = json::parse(bytes, onEvent, /*allow_exceptions=*/false);
    if (_failure) throw Undecodable{*_failure};
    if (document.is_discarded()) throw Undecodable{"not JSON"};
    const json& rest = member(document, "profiles");
    if (!rest.is_array()) throw Undecodable{"\"profiles\" is not an array"};
    if (!rest.empty()) throw Undecodable{"an entry of \"profiles\" is not an object"};
    return std::move(_profiles);
  }

 private:
  static constexpr int kDeepest = 8;  // twice what the form needs

  bool keep(int depth, json::parse_event_t event, json& value) {
    if (_failure) return false;
    if (depth > kDeepest) {
      _failure = "nested too deeply";
      return false;
    }
    if (depth == 1 && event == json::parse_event_t::key) _isInProfiles = value == "profiles";
    if (depth != 2 || event != json::parse_event_t::object_end || !_isInProfiles) return true;
    try {
      _profiles.push_back(std::make_shared<const HeadphoneProfile>(profileFrom(value)));
    } catch (const Undecodable& error) {
      _failure = fmt::format("profile {}: {}", _profiles.size() + 1, error.reason);
    }
    return false;
  }

  bool _isInProfiles = false;
  std::optional<std::string> _failure;
  std::vector<HeadphoneProfileRef> _profiles;
};

void logError(std::string_view message) {
  log::write(log::Level::error, message);
}

}  // namespace

HeadphoneProfileDatabase& HeadphoneProfileDatabase::shared() {
  static HeadphoneProfileDatabase database;
  return database;
}

bool HeadphoneProfileDatabase::load() {
  const auto file = paths::resource(kFileName);
  if (!file) {
    logError("headphone-profiles.json not found in bundle");
    return false;
  }
  return load(*file);
}

bool HeadphoneProfileDatabase::load(const fs::path& file) {
  std::string failure = "too large";
  std::error_code error;
  const auto size = fs::file_size(file, error);
  std::optional<std::string> bytes;
  if (error || size <= kLargestFile) bytes = readFile(file, failure);
  if (!bytes) {
    logError(fmt::format("Failed to read headphone-profiles.json: {}", failure));
    return false;
  }

  std::vector<HeadphoneProfileRef> profiles;
  try {
    profiles = ProfileReader().read(*bytes);
  } catch (const Undecodable& undecodable) {
    logError(fmt::format("Failed to decode headphone profiles JSON: {}", undecodable.reason));
    return false;
  }
  std::vector<Entry> all;
  std::map<std::string, std::vector<HeadphoneProfileRef>> byBrand;
  std::unordered_map<std::string, HeadphoneProfileRef> byId;
  all.reserve(profiles.size());
  for (HeadphoneProfileRef& profile : profiles) {
    byBrand[profile->brand].push_back(profile);
    byId[profile->id] = profile;
    std::string model = unicode::lowercased(profile->model);
    all.push_back({std::move(profile), std::move(model)});
  }

  // What was there before is freed after the lock.
  const MutexLock lock(_lock);
  _allProfiles.swap(all);
  _brandIndex.swap(byBrand);
  _idIndex.swap(byId);
  _isLoaded = true;
  return true;
}

bool HeadphoneProfileDatabase::isLoaded() const {
  const MutexLock lock(_lock);
  return _isLoaded;
}

std::vector<HeadphoneProfileRef> HeadphoneProfileDatabase::search(std::string_view query) const {
  const std::string lowercasedQuery = unicode::lowercased(query);
  std::vector<HeadphoneProfileRef> found;
  const MutexLock lock(_lock);
  for (const Entry& entry : _allProfiles) {
    if (entry.lowercasedModel.find(lowercasedQuery) != std::string::npos) {
      found.push_back(entry.profile);
    }
  }
  return found;
}

HeadphoneProfileRef HeadphoneProfileDatabase::profile(std::string_view id) const {
  const MutexLock lock(_lock);
  const auto found = _idIndex.find(std::string(id));
  return found == _idIndex.end() ? nullptr : found->second;
}

std::map<std::string, std::vector<HeadphoneProfileRef>> HeadphoneProfileDatabase::profilesByBrand()
    const {
  const MutexLock lock(_lock);
  return _brandIndex;
}

}  // namespace velorin
