// What the listener set for the effects: their switches and parameters, the equalizer, the chain.
//
// A setter shows its value at once and does nothing where nothing changes. On the engine's queue
// the effect and its preferences follow, and the headroom is reckoned anew. What belongs to the
// device is written into its profile a moment later, once for a whole drag of a slider; the
// preferences, too, reach the disk in the background.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "dsp/DSPChainConfig.h"
#include "dsp/presets/EQBand.h"
#include "dsp/settings/DSPSetting.h"
#include "dsp/settings/DSPSnapshot.h"
#include "records/DeviceSettings.h"
#include "records/Track.h"

namespace velorin {

class AudioEngine;
class Preferences;

/// Main thread.
class SoundSettings {
 public:
  struct Services {
    /// Runs work on the engine's queue, in the order of the calls, then `done` on the main thread
    /// unless the owner is gone.
    std::function<void(std::function<void(AudioEngine&)> work, std::function<void()> done)>
        onEngine;
    /// What plays or waits; the headroom depends on its ReplayGain.
    std::function<std::optional<Track>()> currentTrack;
    std::function<void()> changed;         ///< what is shown here
    std::function<void()> profileChanged;  ///< what the profile of the device holds
  };

  /// Shows what the engine has. Both outlive this.
  SoundSettings(AudioEngine& engine, Preferences& preferences, Services services);

  // --- Effects. Every parameter has its name in DSPSetting. ---

  /// Of the headphone profile: of its entry in the chain.
  bool isEffectEnabled(DSPEffectType type) const;
  /// The effect's entry in the chain follows. The headphone profile without one stays off.
  void setEffectEnabled(DSPEffectType type, bool on);
  void toggleEffect(DSPEffectType type) { setEffectEnabled(type, !isEffectEnabled(type)); }

  double value(DSPSetting setting) const;
  /// Held within what a panel offers (EffectParameter); what is not finite is ignored.
  void set(DSPSetting setting, double value);
  /// All parameters of the effect to their defaults; its switch stays.
  void resetEffect(DSPEffectType type);

  // --- Equalizer ---

  const std::string& equalizerPresetName() const noexcept { return _shown.equalizerPresetName; }
  const std::vector<EQBand>& equalizerBands() const noexcept { return _bands; }
  /// Of more bands than an equalizer has, the first. Only the name is stored: bands of the
  /// listener's own are kept by saving them as a preset.
  void applyEqualizerPreset(std::string name, std::vector<EQBand> bands);
  /// Gain to a tenth of a dB, Q to a hundredth, within EQBand's limits; an index beyond the bands
  /// is ignored.
  void updateBand(std::size_t index, std::optional<double> gain, std::optional<double> q,
                  std::optional<EQBand::FilterType> filterType);

  // --- The chain ---

  const std::vector<DSPChainEntry>& dspChainEntries() const noexcept { return _entries; }
  /// After an edit: the entries' switches become those of the effects. A second entry of an effect
  /// is dropped, an id that is none is made anew.
  void setChain(std::vector<DSPChainEntry> entries);
  void resetChain() { setChain(defaultChainConfig().entries); }

  // --- Headroom ---

  bool headroomManagementEnabled() const noexcept { return _headroomIsManaged; }
  void setHeadroomManagementEnabled(bool on);
  /// After a change of what it depends on elsewhere.
  void updateHeadroom();
  /// dB that are taken away now.
  double currentHeadroomDB() const;

  // --- All at once ---

  DSPSnapshot snapshot() const;
  /// As applySnapshot().
  void apply(const DSPSnapshot& snapshot);
  /// dB on top of the pre-amp's gain: heard, but neither shown nor stored nor part of a snapshot.
  void setPreAmpOffset(double dB);
  /// The engine has applied the profile of another device.
  void takeOver(const DeviceSettings& settings);

 private:
  enum class Belongs { toAll, toDevice };
  /// Tells what changed, and has the effects follow.
  void edit(Belongs belongs, std::function<void(AudioEngine&, Preferences&)> work);
  void tellHeadroom();
  void onEngine(
      std::function<void(AudioEngine&, Preferences&)> work, std::function<void()> done = [] {});
  /// Shows what the engine has, once no edit of ours is on its way to it.
  void reread();
  void show(DSPSnapshot snapshot);
  double heldValue(DSPSetting setting, double value) const;

  AudioEngine& _engine;
  Preferences& _preferences;
  const Services _services;
  struct Range {
    double minimum;
    double maximum;
    double defaultValue;
  };
  std::array<Range, kDSPSettingCount> _ranges{};

  DSPSnapshot _shown;  ///< but for its two fields of bytes, which are these:
  std::vector<DSPChainEntry> _entries;
  std::vector<EQBand> _bands;
  bool _headroomIsManaged = true;
  double _toldHeadroomDB = 0;
  std::uint64_t _edits = 0;
};

}  // namespace velorin
