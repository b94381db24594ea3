#include "shell/menus/MenuModel.h"

#include <fmt/format.h>

#include <cmath>

namespace velorin {
namespace {

constexpr int kIndent = 2;
constexpr std::string_view kUnknownArtist = "Unknown Artist";

MenuItem separator() {
  return {};
}

MenuItem label(std::string title, int indent = 0) {
  MenuItem item;
  item.title = std::move(title);
  item.enabled = false;
  item.indent = indent;
  return item;
}

MenuItem command(std::string title, MenuAction action, std::string icon = {}) {
  MenuItem item;
  item.title = std::move(title);
  item.icon = std::move(icon);
  item.action = action;
  return item;
}

MenuItem check(std::string title, MenuAction action, bool checked) {
  MenuItem item = command(std::move(title), action);
  item.checked = checked;
  return item;
}

MenuItem enabledIf(bool enabled, MenuItem item) {
  item.enabled = enabled;
  return item;
}

void addNowPlaying(const MenuState& state, Menu& menu) {
  if (!state.track) return menu.push_back(label("Not Playing"));
  menu.push_back(label("Now Playing"));
  menu.push_back(label(state.track->title, kIndent));
  if (state.track->artist != kUnknownArtist && !state.track->artist.empty()) {
    menu.push_back(label(state.track->artist, kIndent));
  }
}

void addTransport(const MenuState& state, Menu& menu) {
  const bool plays = state.state == PlaybackState::playing;
  const bool canPlay = state.track || state.state != PlaybackState::stopped;
  menu.push_back(separator());
  menu.push_back(
      enabledIf(canPlay, command(plays ? "Pause" : "Play", MenuAction::dockTogglePlayPause,
                                 plays ? "pause.fill" : "play.fill")));
  menu.push_back(command("Next", MenuAction::dockNext, "forward.end.fill"));
  menu.push_back(command("Previous", MenuAction::dockPrevious, "backward.end.fill"));
}

void addTrackActions(const MenuState& state, Menu& menu) {
  if (!state.track || !state.track->isInLibrary) return;
  const bool loved = state.track->isFavorite;
  menu.push_back(separator());
  menu.push_back(command(loved ? "Remove from Favorites" : "Add to Favorites",
                         MenuAction::dockToggleFavorite, loved ? "heart.fill" : "heart"));
  menu.push_back(state.radioRuns ? command("Stop Radio", MenuAction::dockToggleRadio, "stop.circle")
                                 : command("Start Radio", MenuAction::dockToggleRadio,
                                           "dot.radiowaves.left.and.right"));
}

Menu sleepTimerMenu(const MenuState& state) {
  Menu menu{command("End of Current Track", MenuAction::menuSleepTimerEndOfTrack)};
  for (const auto& [title, minutes] :
       {std::pair{"15 Minutes", 15}, {"30 Minutes", 30}, {"1 Hour", 60}}) {
    menu.push_back(command(title, MenuAction::menuSleepTimerPreset));
    menu.back().tag = minutes;
  }
  if (state.sleepTimerRuns) {
    menu.push_back(separator());
    const std::string left = state.sleepTimerEndOfTrack
                                 ? "End of Track"
                                 : remainingText(state.sleepTimerSecondsRemaining);
    menu.push_back(
        command(fmt::format("Cancel Timer ({})", left), MenuAction::menuSleepTimerCancel));
  }
  menu.push_back(separator());
  menu.push_back(command("Settings…", MenuAction::menuOpenSleepTimer));
  return menu;
}

void addTransportSection(const MenuState& state, Menu& menu) {
  addNowPlaying(state, menu);
  addTransport(state, menu);
  addTrackActions(state, menu);
  menu.push_back(separator());
  menu.push_back(enabledIf(state.state != PlaybackState::stopped,
                           command("Stop", MenuAction::menuStop, "stop.fill")));
  menu.push_back(enabledIf(
      state.track.has_value(),
      check("Stop After Current", MenuAction::menuToggleStopAfterCurrent, state.stopAfterCurrent)));
  MenuItem sleepTimer;
  sleepTimer.title = "Sleep Timer";
  sleepTimer.icon = "moon";
  sleepTimer.submenu = sleepTimerMenu(state);
  menu.push_back(std::move(sleepTimer));
}

std::string strategyTitle(const MenuState& state) {
  switch (state.strategy) {
    case SampleRateStrategy::native:
      return "SR: Native";
    case SampleRateStrategy::powerOf2:
      return fmt::format("SR: ×{}", state.multiplier);
    case SampleRateStrategy::max:
      return "SR: Max";
    case SampleRateStrategy::fixed:
      return "SR: Fixed";
  }
  return "SR: Native";
}

std::string widenerTitle(const MenuState& state) {
  if (!state.stereoWidener) return "Stereo Width Off";
  return fmt::format("Stereo Width {:.0f}%", std::round(state.stereoWidth * 100));
}

void addAudioSection(const MenuState& state, Menu& menu) {
  menu.push_back(separator());
  menu.push_back(label("Audio"));
  if (state.track && !state.track->sourceFormat.empty()) {
    menu.push_back(label(state.track->sourceFormat, kIndent));
  }
  if (!state.outputDevice.empty()) menu.push_back(label(state.outputDevice, kIndent));
  menu.push_back(separator());
  menu.push_back(
      check("Exclusive Mode (HOG)", MenuAction::menuToggleExclusive, state.exclusiveMode));
  menu.push_back(check("Integer Mode", MenuAction::menuToggleInteger, state.integerMode));
  menu.push_back(check("Gapless Playback", MenuAction::menuToggleGapless, state.gaplessPlayback));
  menu.push_back(check("Memory Playback", MenuAction::menuToggleMemory, state.memoryPlayback));
  menu.push_back(command(strategyTitle(state), MenuAction::menuCycleResampling));
  menu.push_back(command(widenerTitle(state), MenuAction::menuToggleStereoWidener));
}

}  // namespace

Menu dockMenu(const MenuState& state) {
  Menu menu;
  if (state.track) addTransportSection(state, menu);
  return menu;
}

Menu statusMenu(const MenuState& state) {
  Menu menu{command("Show Velorin", MenuAction::showMainWindow), separator()};
  addTransportSection(state, menu);
  addAudioSection(state, menu);
  return menu;
}

std::string remainingText(int seconds) {
  const int left = std::max(seconds, 0);
  if (left < 3600) return fmt::format("{}:{:02}", left / 60, left % 60);
  return fmt::format("{}:{:02}:{:02}", left / 3600, left / 60 % 60, left % 60);
}

SampleRateStrategy nextStrategy(SampleRateStrategy strategy) noexcept {
  switch (strategy) {
    case SampleRateStrategy::native:
      return SampleRateStrategy::powerOf2;
    case SampleRateStrategy::powerOf2:
      return SampleRateStrategy::max;
    case SampleRateStrategy::max:
      return SampleRateStrategy::fixed;
    case SampleRateStrategy::fixed:
      break;
  }
  return SampleRateStrategy::native;
}

}  // namespace velorin
