// The dock menu and the status menu as data: what stands in them and what each item does. Whoever
// draws them, a tray, a launcher or a test, gets the same.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "records/PlaybackTypes.h"

namespace velorin {

enum class MenuAction : std::uint8_t {
  showMainWindow,
  dockTogglePlayPause,
  dockNext,
  dockPrevious,
  dockToggleFavorite,
  dockToggleRadio,
  menuStop,
  menuToggleStopAfterCurrent,
  menuToggleExclusive,
  menuToggleInteger,
  menuToggleGapless,
  menuToggleMemory,
  menuCycleResampling,
  menuToggleStereoWidener,
  menuSleepTimerEndOfTrack,
  menuSleepTimerPreset,  ///< of `tag` minutes
  menuSleepTimerCancel,
  menuOpenSleepTimer,
};

struct MenuItem {
  std::string title;  ///< empty for a separator
  bool enabled = true;
  bool checked = false;
  int indent = 0;    ///< blanks before the title
  std::string icon;  ///< name of a symbol; empty for none
  int tag = 0;
  std::optional<MenuAction> action;
  std::vector<MenuItem> submenu;

  bool isSeparator() const noexcept { return title.empty(); }
  bool operator==(const MenuItem&) const = default;
};

using Menu = std::vector<MenuItem>;

/// What the menus tell of, as of one moment. A value.
struct MenuState {
  struct CurrentTrack {
    std::string title;
    std::string artist;
    bool isInLibrary = false;
    bool isFavorite = false;
    std::string sourceFormat;  ///< "FLAC · 44.1 kHz · 16-bit"; may be empty
  };
  std::optional<CurrentTrack> track;
  PlaybackState state = PlaybackState::stopped;
  bool radioRuns = false;
  bool stopAfterCurrent = false;

  bool sleepTimerRuns = false;
  bool sleepTimerEndOfTrack = false;
  int sleepTimerSecondsRemaining = 0;

  std::string outputDevice;  ///< empty without one
  bool exclusiveMode = false;
  bool integerMode = false;
  bool gaplessPlayback = true;
  bool memoryPlayback = false;
  SampleRateStrategy strategy = SampleRateStrategy::native;
  int multiplier = 2;
  bool stereoWidener = false;
  float stereoWidth = 1;  ///< 1 is no change
};

/// Without a current track there is no dock menu: it is empty. Pure.
Menu dockMenu(const MenuState& state);
Menu statusMenu(const MenuState& state);

/// "1:05", "1:02:05"; below 0 as 0. Pure.
std::string remainingText(int seconds);

/// The strategy after this one. Pure.
SampleRateStrategy nextStrategy(SampleRateStrategy strategy) noexcept;

}  // namespace velorin
