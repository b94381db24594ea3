#include "session/SoundSettings.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

#include "dsp/DSPEffects.h"
#include "dsp/settings/EffectSettings.h"
#include "engine/AudioEngine.h"
#include "foundation/Preferences.h"
#include "foundation/Uuid.h"
#include "session/TrackEffects.h"

namespace velorin {
namespace {

constexpr const char* kHeadroom = "headroomManagementEnabled";
constexpr double kGainSteps = 10;  // of a dB
constexpr double kQSteps = 100;

void storePresetName(const std::string& name, Preferences& preferences) {
  preferences.setText("equalizerPresetName", name);
}

std::optional<double> inSteps(std::optional<double> value, double steps, double low, double high) {
  if (!value || !std::isfinite(*value)) return std::nullopt;
  return std::clamp(std::round(*value * steps) / steps, low, high);
}

std::vector<EQBand> usable(std::vector<EQBand> bands) {
  if (bands.size() > EqualizerDSP::kSectionCount) bands.resize(EqualizerDSP::kSectionCount);
  for (EQBand& band : bands) band = band.clamped();
  return bands;
}

std::vector<DSPChainEntry> usable(std::vector<DSPChainEntry> entries) {
  std::vector<DSPChainEntry> kept;
  for (DSPChainEntry& entry : entries) {
    const bool isThere =
        std::ranges::find(kept, entry.effectType, &DSPChainEntry::effectType) != kept.end();
    if (isThere) continue;
    if (!isUuid(entry.id)) entry.id = makeUuid();
    kept.push_back(std::move(entry));
  }
  return kept;
}

/// The switch of an effect's entry; null where the chain has none.
bool* switchIn(std::vector<DSPChainEntry>& entries, DSPEffectType type) {
  const auto entry = std::ranges::find(entries, type, &DSPChainEntry::effectType);
  return entry == entries.end() ? nullptr : &entry->enabled;
}

}  // namespace

SoundSettings::SoundSettings(AudioEngine& engine, Preferences& preferences, Services services)
    : _engine(engine), _preferences(preferences), _services(std::move(services)) {
  for (const DSPSettingInfo& info : allDSPSettings()) {
    const auto parameters = engine.effects().effect(info.effect).parameters();
    const auto& parameter = *std::ranges::find(parameters, info.parameter, &EffectParameter::name);
    _ranges[static_cast<std::size_t>(info.setting)] = {parameter.minimum, parameter.maximum,
                                                       parameter.defaultValue};
  }
  _headroomIsManaged = engine.effects().headroomDSP.isManaged();
  show(captureSnapshot(engine.effects(), preferences));
}

// --- Effects ---

bool SoundSettings::isEffectEnabled(DSPEffectType type) const {
  if (const DSPSwitchInfo* info = switchOf(type)) return _shown.*info->inSnapshot;
  const auto entry = std::ranges::find(_entries, type, &DSPChainEntry::effectType);
  return entry != _entries.end() && entry->enabled;
}

void SoundSettings::setEffectEnabled(DSPEffectType type, bool on) {
  if (isEffectEnabled(type) == on) return;
  bool* inChain = switchIn(_entries, type);
  const DSPSwitchInfo* info = switchOf(type);
  if (info == nullptr && inChain == nullptr) return;
  if (info != nullptr) _shown.*info->inSnapshot = on;
  if (inChain != nullptr) *inChain = on;
  edit(Belongs::toDevice, [type, on](AudioEngine& engine, Preferences& preferences) {
    engine.effects().effect(type).setEnabled(on);
    storeEffect(type, engine.effects(), preferences);
    // The engine's own list: a switch of the device may have brought another one meanwhile.
    std::vector<DSPChainEntry> entries = engine.effects().entries();
    bool* enabled = switchIn(entries, type);
    if (enabled == nullptr) return;
    *enabled = on;
    engine.applyDSPChainConfig(entries);
    storeChain(entries, preferences);
  });
}

double SoundSettings::value(DSPSetting setting) const {
  return *numberAt(_shown, infoOf(setting).inSnapshot);
}

double SoundSettings::heldValue(DSPSetting setting, double value) const {
  const Range& range = _ranges[static_cast<std::size_t>(setting)];
  const double held = std::clamp(value, range.minimum, range.maximum);
  return infoOf(setting).isWhole() ? std::round(held) : held;
}

void SoundSettings::set(DSPSetting setting, double value) {
  if (!std::isfinite(value)) return;
  const DSPSettingInfo& info = infoOf(setting);
  const double before = this->value(setting);
  putNumber(_shown, info.inSnapshot, heldValue(setting, value));
  const double now = this->value(setting);
  if (now == before) return;
  const bool isOfDevice = !std::holds_alternative<std::monostate>(info.inDevice);
  edit(isOfDevice ? Belongs::toDevice : Belongs::toAll,
       [setting, now, type = info.effect](AudioEngine& engine, Preferences& preferences) {
         setValue(setting, now, engine.effects());
         storeEffect(type, engine.effects(), preferences);
       });
}

void SoundSettings::resetEffect(DSPEffectType type) {
  for (const DSPSettingInfo& info : allDSPSettings()) {
    if (info.effect != type) continue;
    set(info.setting, _ranges[static_cast<std::size_t>(info.setting)].defaultValue);
  }
}

// --- Equalizer ---

void SoundSettings::applyEqualizerPreset(std::string name, std::vector<EQBand> bands) {
  bands = usable(std::move(bands));
  if (name == _shown.equalizerPresetName && bands == _bands) return;
  _shown.equalizerPresetName = std::move(name);
  _bands = std::move(bands);
  edit(Belongs::toDevice, [shown = _shown.equalizerPresetName, set = _bands](
                              AudioEngine& engine, Preferences& preferences) {
    setBands(set, engine.effects());
    storePresetName(shown, preferences);
  });
}

void SoundSettings::updateBand(std::size_t index, std::optional<double> gain,
                               std::optional<double> q,
                               std::optional<EQBand::FilterType> filterType) {
  if (index >= _bands.size()) return;
  gain = inSteps(gain, kGainSteps, EQBand::kLowestGain, EQBand::kHighestGain);
  q = inSteps(q, kQSteps, EQBand::kLowestQ, EQBand::kHighestQ);
  EQBand band = _bands[index];
  band.gain = gain.value_or(band.gain);
  band.q = q.value_or(band.q);
  band.filterType = filterType.value_or(band.filterType);
  if (std::exchange(_bands[index], band) == band) return;
  edit(Belongs::toAll, [index, gain, q, filterType](AudioEngine& engine, Preferences&) {
    engine.effects().equalizer.updateBand(index, gain, q, filterType);
  });
}

// --- The chain ---

void SoundSettings::setChain(std::vector<DSPChainEntry> entries) {
  entries = usable(std::move(entries));
  if (entries == _entries) return;
  _entries = std::move(entries);
  for (const DSPChainEntry& entry : _entries) {
    if (const DSPSwitchInfo* info = switchOf(entry.effectType)) {
      _shown.*info->inSnapshot = entry.enabled;
    }
  }
  edit(Belongs::toDevice, [set = _entries](AudioEngine& engine, Preferences& preferences) {
    engine.applyDSPChainConfig(set);
    storeEffects(engine.effects(), preferences);
    storeChain(set, preferences);
  });
}

// --- Headroom ---

void SoundSettings::setHeadroomManagementEnabled(bool on) {
  if (std::exchange(_headroomIsManaged, on) == on) return;
  edit(Belongs::toAll, [on](AudioEngine& engine, Preferences& preferences) {
    engine.effects().headroomDSP.setManaged(on);
    preferences.setBool(kHeadroom, on);
  });
}

void SoundSettings::updateHeadroom() {
  onEngine([track = _services.currentTrack()](
               AudioEngine& engine, Preferences&) { velorin::updateHeadroom(track, engine); },
           [this] { tellHeadroom(); });
}

double SoundSettings::currentHeadroomDB() const {
  return _engine.effects().headroomDSP.headroomDB();
}

// --- All at once ---

DSPSnapshot SoundSettings::snapshot() const {
  DSPSnapshot snapshot = _shown;
  snapshot.chainConfigData = chainData(_entries);
  snapshot.equalizerBandsData = bandsData(_bands);
  return snapshot;
}

void SoundSettings::show(DSPSnapshot snapshot) {
  for (const DSPSettingInfo& info : allDSPSettings()) {
    // What the effect does not take leaves what it has.
    if (info.takes(*numberAt(snapshot, info.inSnapshot))) continue;
    putNumber(snapshot, info.inSnapshot, value(info.setting));
  }
  if (const auto chain = chainOf(snapshot)) _entries = chain->entries;
  if (auto bands = bandsOf(snapshot)) _bands = usable(std::move(*bands));
  followSwitches(_entries, snapshot);
  _shown = std::move(snapshot);
}

void SoundSettings::apply(const DSPSnapshot& snapshot) {
  show(snapshot);
  edit(Belongs::toDevice, [snapshot](AudioEngine& engine, Preferences& preferences) {
    applySnapshot(snapshot, engine.effects(), preferences);
  });
}

void SoundSettings::setPreAmpOffset(double dB) {
  onEngine([dB](AudioEngine& engine, Preferences&) { engine.effects().preAmp.setOffset(dB); });
}

void SoundSettings::takeOver(const DeviceSettings& settings) {
  DSPSnapshot incoming = snapshot();
  if (settings.dspChainConfigData) incoming.chainConfigData = *settings.dspChainConfigData;
  const auto chain = settings.dspChainConfigData ? chainOf(incoming) : std::nullopt;
  for (const DSPSwitchInfo& info : allDSPSwitches()) {
    if (info.inDevice != nullptr) incoming.*info.inSnapshot = settings.*info.inDevice;
    if (!chain) continue;
    for (const DSPChainEntry& entry : chain->entries) {
      if (entry.effectType == info.effect) incoming.*info.inSnapshot = entry.enabled;
    }
  }
  for (const DSPSettingInfo& info : allDSPSettings()) {
    if (const auto value = numberAt(settings, info.inDevice)) {
      putNumber(incoming, info.inSnapshot, *value);
    }
  }
  incoming.equalizerPresetName = settings.equalizerPresetName;
  show(std::move(incoming));
  _services.changed();
  reread();
}

void SoundSettings::reread() {
  auto read = std::make_shared<DSPSnapshot>();
  onEngine(
      [read, track = _services.currentTrack()](AudioEngine& engine, Preferences& preferences) {
        velorin::updateHeadroom(track, engine);
        *read = captureSnapshot(engine.effects(), preferences);
      },
      [this, read, edits = _edits] {
        // What was edited meanwhile comes to the effects after this.
        if (edits != _edits) return reread();
        if (*read == snapshot()) return;
        show(*read);
        _services.changed();
      });
}

void SoundSettings::edit(Belongs belongs, std::function<void(AudioEngine&, Preferences&)> work) {
  ++_edits;
  _services.changed();
  if (belongs == Belongs::toDevice) _services.profileChanged();
  onEngine(
      [work = std::move(work), track = _services.currentTrack()](AudioEngine& engine,
                                                                 Preferences& preferences) {
        work(engine, preferences);
        velorin::updateHeadroom(track, engine);
      },
      [this] { tellHeadroom(); });
}

void SoundSettings::tellHeadroom() {
  const double headroom = currentHeadroomDB();
  if (std::exchange(_toldHeadroomDB, headroom) != headroom) _services.changed();
}

void SoundSettings::onEngine(std::function<void(AudioEngine&, Preferences&)> work,
                             std::function<void()> done) {
  _services.onEngine([work = std::move(work), &preferences = _preferences](
                         AudioEngine& engine) { work(engine, preferences); },
                     std::move(done));
}

}  // namespace velorin
