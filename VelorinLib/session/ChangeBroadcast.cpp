#include "session/ChangeBroadcast.h"

#include "foundation/MainThread.h"

namespace velorin {

std::shared_ptr<void> ChangeBroadcast::observe(Observer observer) {
  auto token = std::make_shared<Observer>(std::move(observer));
  _observers.push_back(token);
  return token;
}

void ChangeBroadcast::note(PlayerChanges changes) {
  if (changes.empty()) return;
  const bool isScheduled = !_pending.empty();
  _pending |= changes;
  if (!isScheduled) MainThread::instance().post(_life.guard([this] { flush(); }));
}

void ChangeBroadcast::flush() {
  const PlayerChanges changes = std::exchange(_pending, {});
  std::erase_if(_observers, [](const auto& observer) { return observer.expired(); });
  // A copy: observers come and go while they are told.
  for (const auto& each : std::vector(_observers)) {
    if (const auto observer = each.lock()) (*observer)(changes);
  }
}

}  // namespace velorin
