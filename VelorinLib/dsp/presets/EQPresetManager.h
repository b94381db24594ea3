// The equalizer's presets: ours, and the files of the listener's own.
#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "dsp/presets/EQPreset.h"
#include "foundation/Mutex.h"

namespace velorin {

/// Keeps one file per preset in a folder. Any thread but the render thread; blocks for the disk.
/// The folder is read at every call, so that a file put there by hand is seen.
class EQPresetManager {
 public:
  /// Files beyond this size are no presets.
  static constexpr std::uintmax_t kLargestFile = 1 << 20;

  /// The one of the program: "EQPresets" in the data folder.
  static EQPresetManager& shared();

  /// Makes the folder and its parents; goes on when it cannot.
  explicit EQPresetManager(std::filesystem::path presetsDirectory);

  /// The listener's own, by name in the order of unicode::NameOrder. A file ".json" that is no
  /// preset stays where it is, is logged and left out; a folder that cannot be read has none.
  std::vector<EQPreset> loadUserPresets() const;

  /// builtInPresets(), then the listener's own.
  std::vector<EQPreset> allPresets() const;

  /// The first of all presets that has this name.
  std::optional<EQPreset> preset(std::string_view name) const;

  /// Writes a preset, in the place of one with the same file name. Nothing on success, else one
  /// line that says why not; then an older file is untouched.
  std::optional<std::string> savePreset(std::string_view name, std::span<const EQBand> bands)
      EXCLUDES(_writing);

  /// Removes the file of a preset. Nothing on success, else one line that says why not.
  std::optional<std::string> deletePreset(std::string_view name) EXCLUDES(_writing);

  const std::filesystem::path& presetsDirectory() const noexcept { return _presetsDirectory; }

  /// The name with "_" for everything but Unicode letters, marks, numbers, "-", "_" and blanks,
  /// then ".json". Different names may come to the same file.
  static std::string fileName(std::string_view name);

 private:
  const std::filesystem::path _presetsDirectory;
  Mutex _writing;  ///< one writer at a time
};

}  // namespace velorin
