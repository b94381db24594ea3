#include "shell/menus/PlayerMenus.h"

#include <algorithm>

#include "desktop/TrackNotification.h"
#include "engine/AudioEngine.h"
#include "foundation/Uuid.h"
#include "session/PlayerState.h"
#include "session/SoundSettings.h"

namespace velorin {
namespace {

constexpr int kSecondsPerMinute = 60;

void callIfThere(const std::function<void()>& function) {
  if (function) function();
}

}  // namespace

MenuState PlayerMenus::state() const {
  MenuState state;
  if (const auto& current = _player.currentTrack()) {
    auto& track = state.track.emplace(MenuState::CurrentTrack{});
    track.title = current->track.title;
    track.artist = current->artist.name;
    track.isInLibrary = current->track.id && !current->isExternal;
    track.isFavorite =
        track.isInLibrary && _seams.isFavorite && _seams.isFavorite(*current->track.id);
    track.sourceFormat = trackNotificationText(*current).body;
  }
  AudioEngine& engine = _player.engine();
  state.state = _player.state();
  state.radioRuns = _player.radioSeedTrackId().has_value();
  state.stopAfterCurrent = _player.stopAfterCurrent();
  state.sleepTimerRuns = _player.sleepTimerRuns();
  state.sleepTimerEndOfTrack = _player.sleepTimerEndOfTrack();
  state.sleepTimerSecondsRemaining = _player.sleepTimerSecondsRemaining();
  for (const AudioDevice& device : engine.enumerateOutputDevices()) {
    if (device.id == engine.currentDevice()) state.outputDevice = device.name;
  }
  state.exclusiveMode = _player.exclusiveMode();
  state.integerMode = _player.integerMode();
  state.gaplessPlayback = _player.gaplessEnabled();
  state.memoryPlayback = _player.memoryPlayback();
  state.strategy = _player.sampleRateStrategy();
  state.multiplier = _player.resamplingMultiplier();
  state.stereoWidener = _player.sound().isEffectEnabled(DSPEffectType::stereoWidener);
  state.stereoWidth = static_cast<float>(_player.sound().value(DSPSetting::stereoWidenerWidth));
  return state;
}

void PlayerMenus::apply(MenuAction action, int tag) {
  switch (action) {
    case MenuAction::showMainWindow:
      return callIfThere(_seams.showMainWindow);
    case MenuAction::dockTogglePlayPause:
      return _player.togglePlayPause();
    case MenuAction::dockNext:
      return _player.nextDebounced();
    case MenuAction::dockPrevious:
      return _player.previousDebounced();
    case MenuAction::dockToggleFavorite:
      if (const auto& current = _player.currentTrack();
          current && current->track.id && _seams.toggleFavorite) {
        _seams.toggleFavorite(*current->track.id);
      }
      return;
    case MenuAction::dockToggleRadio:
      if (!_player.currentTrack()) return;
      if (_player.radioSeedTrackId()) return _player.setRadioSeedTrackId(std::nullopt);
      return callIfThere(_seams.startRadio);
    case MenuAction::menuStop:
      return _player.stop();
    case MenuAction::menuToggleStopAfterCurrent:
      return _player.toggleStopAfterCurrent();
    case MenuAction::menuToggleExclusive:
      return _player.setExclusiveMode(!_player.exclusiveMode());
    case MenuAction::menuToggleInteger:
      return _player.setIntegerMode(!_player.integerMode());
    case MenuAction::menuToggleGapless:
      return _player.setGaplessEnabled(!_player.gaplessEnabled());
    case MenuAction::menuToggleMemory:
      return _player.setMemoryPlayback(!_player.memoryPlayback());
    case MenuAction::menuCycleResampling:
      return _player.setSampleRateStrategy(nextStrategy(_player.sampleRateStrategy()));
    case MenuAction::menuToggleStereoWidener:
      return toggleStereoWidener();
    case MenuAction::menuSleepTimerEndOfTrack:
      return _player.startSleepTimerEndOfTrack();
    case MenuAction::menuSleepTimerPreset:
      return _player.startSleepTimer(tag * kSecondsPerMinute);
    case MenuAction::menuSleepTimerCancel:
      return _player.cancelSleepTimer();
    case MenuAction::menuOpenSleepTimer:
      callIfThere(_seams.showMainWindow);
      return callIfThere(_seams.openSleepTimer);
  }
}

void PlayerMenus::toggleStereoWidener() {
  SoundSettings& sound = _player.sound();
  std::vector<DSPChainEntry> entries = sound.dspChainEntries();
  const auto isWidener = [](const auto& entry) {
    return entry.effectType == DSPEffectType::stereoWidener;
  };
  if (std::ranges::any_of(entries, isWidener)) {
    return sound.toggleEffect(DSPEffectType::stereoWidener);
  }
  // Outside the chain it would not be heard.
  entries.push_back({makeUuid(), DSPEffectType::stereoWidener, true, std::nullopt});
  sound.setChain(std::move(entries));
}

}  // namespace velorin
