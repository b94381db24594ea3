#include "dsp/presets/EQPresetManager.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <system_error>
#include <utility>

#include "dsp/presets/BuiltInPresets.h"
#include "foundation/AtomicFile.h"
#include "foundation/Log.h"
#include "foundation/Paths.h"
#include "foundation/Text.h"
#include "foundation/Unicode.h"

namespace velorin {

namespace fs = std::filesystem;

namespace {

std::optional<EQPreset> load(const fs::path& file) {
  std::error_code error;
  const auto size = fs::file_size(file, error);
  if (error || size > EQPresetManager::kLargestFile) return std::nullopt;
  std::string failure;
  const auto bytes = readFile(file, failure);
  if (!bytes) return std::nullopt;
  auto preset = presetFromJSON(*bytes);
  if (!preset) return std::nullopt;
  return std::move(preset).value();
}

/// In the order of their names' bytes: presets of one name then always come in one order.
std::vector<fs::path> presetFiles(const fs::path& folder) {
  std::vector<fs::path> files;
  std::error_code error;
  for (fs::directory_iterator item(folder, error); !error && item != fs::directory_iterator();
       item.increment(error)) {
    if (item->path().extension() == ".json") files.push_back(item->path());
  }
  if (error) return {};
  std::sort(files.begin(), files.end());
  return files;
}

bool isFinite(const EQBand& band) {
  return std::isfinite(band.frequency) && std::isfinite(band.gain) && std::isfinite(band.q);
}

}  // namespace

EQPresetManager& EQPresetManager::shared() {
  static EQPresetManager manager(paths::dataDirectory() / "EQPresets");
  return manager;
}

EQPresetManager::EQPresetManager(fs::path presetsDirectory)
    : _presetsDirectory(std::move(presetsDirectory)) {
  std::error_code ignored;
  fs::create_directories(_presetsDirectory, ignored);
}

std::vector<EQPreset> EQPresetManager::loadUserPresets() const {
  const unicode::NameOrder order;
  std::vector<std::pair<std::string, EQPreset>> loaded;
  for (const fs::path& file : presetFiles(_presetsDirectory)) {
    if (auto preset = load(file)) {
      std::string key = order.key(preset->name);
      loaded.emplace_back(std::move(key), std::move(*preset));
    } else {
      log::write(log::Level::error,
                 fmt::format("Failed to load preset: {}", file.filename().native()));
    }
  }
  std::stable_sort(loaded.begin(), loaded.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<EQPreset> presets;
  presets.reserve(loaded.size());
  for (auto& [key, preset] : loaded) presets.push_back(std::move(preset));
  return presets;
}

std::vector<EQPreset> EQPresetManager::allPresets() const {
  std::vector<EQPreset> presets = builtInPresets();
  std::vector<EQPreset> own = loadUserPresets();
  presets.insert(presets.end(), std::make_move_iterator(own.begin()),
                 std::make_move_iterator(own.end()));
  return presets;
}

std::optional<EQPreset> EQPresetManager::preset(std::string_view name) const {
  const auto in = [name](const std::vector<EQPreset>& presets) -> std::optional<EQPreset> {
    const auto found =
        std::find_if(presets.begin(), presets.end(), [&](const auto& p) { return p.name == name; });
    if (found == presets.end()) return std::nullopt;
    return *found;
  };
  if (auto builtIn = in(builtInPresets())) return builtIn;
  return in(loadUserPresets());
}

std::optional<std::string> EQPresetManager::savePreset(std::string_view name,
                                                       std::span<const EQBand> bands) {
  // ".json" alone would be a hidden file without an extension, never to be listed.
  if (name.empty()) return "a preset needs a name";
  if (!std::all_of(bands.begin(), bands.end(), isFinite)) {
    return "a preset cannot hold a frequency, gain or Q that is not a number";
  }
  const std::string json = toJSON({std::string(name), {bands.begin(), bands.end()}, false});
  if (json.size() > kLargestFile) return "the preset has too many bands to be stored";
  const MutexLock lock(_writing);
  return replaceFile(_presetsDirectory / fileName(name), json);
}

std::optional<std::string> EQPresetManager::deletePreset(std::string_view name) {
  const fs::path file = _presetsDirectory / fileName(name);
  const MutexLock lock(_writing);
  std::error_code error;
  if (fs::remove(file, error)) return std::nullopt;
  return fmt::format("cannot remove {}: {}", text::pathForDisplay(file),
                     error ? error.message() : "there is no such preset");
}

std::string EQPresetManager::fileName(std::string_view name) {
  std::string out;
  for (std::size_t i = 0; i < name.size();) {
    const text::CodePoint point = text::decode(name, i);
    i += point.length;
    const char32_t c = point.value;
    const bool isKept = unicode::isAlphanumeric(c) || c == '-' || c == '_' || c == ' ';
    text::append(out, isKept ? c : U'_');
  }
  return out + ".json";
}

}  // namespace velorin
