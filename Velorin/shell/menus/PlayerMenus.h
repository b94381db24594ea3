// The menus of a running player: what they show of it, and what a chosen item does to it.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "shell/menus/MenuModel.h"

namespace velorin {

class PlayerState;

/// Parts that the menus reach beyond the player. What is empty is not there: its item does nothing.
struct MenuSeams {
  std::function<bool(std::int64_t trackId)> isFavorite;
  std::function<void(std::int64_t trackId)> toggleFavorite;
  /// Starts radio from the current track.
  std::function<void()> startRadio;
  std::function<void()> showMainWindow;
  std::function<void()> openSleepTimer;
};

/// Main thread.
class PlayerMenus {
 public:
  /// The player outlives this object.
  PlayerMenus(PlayerState& player, MenuSeams seams) : _player(player), _seams(std::move(seams)) {}

  /// Asks the engine as well: for a menu that opens, not for every tick.
  MenuState state() const;
  /// tag: of the item.
  void apply(MenuAction action, int tag);

 private:
  void toggleStereoWidener();

  PlayerState& _player;
  const MenuSeams _seams;
};

}  // namespace velorin
