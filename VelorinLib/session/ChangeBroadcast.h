// Tells those who show the player what changed: once for all that changed in one turn of the main
// loop.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "session/Lifeline.h"
#include "session/PlayerTypes.h"

namespace velorin {

/// Main thread. An observer may begin and end observations, and change the player.
class ChangeBroadcast {
 public:
  using Observer = std::function<void(PlayerChanges)>;

  /// The observer is told of changes after this moment, until the token is destroyed.
  [[nodiscard]] std::shared_ptr<void> observe(Observer observer);

  void note(PlayerChanges changes);

 private:
  void flush();

  std::vector<std::weak_ptr<Observer>> _observers;
  PlayerChanges _pending;
  Lifeline _life;
};

}  // namespace velorin
