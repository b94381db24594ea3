#include "library/scan/EnumAccumulator.h"

#include <algorithm>
#include <utility>

namespace velorin {

bool FolderEnumResult::isWhole() const noexcept {
  return !timedOut && !cancelled &&
         std::ranges::none_of(unseen, [this](const auto& each) { return each.path == folder; });
}

void EnumAccumulator::addAudio(const WalkedFile& file) {
  const MutexLock lock(_lock);
  if (!_taken) _found.audioFiles.insert(file.path, false, file.stamp);
}

void EnumAccumulator::addCueSheet(std::string path) {
  const MutexLock lock(_lock);
  if (!_taken) _found.cueFiles.push_back(std::move(path));
}

void EnumAccumulator::addPlaylist(std::string path) {
  const MutexLock lock(_lock);
  if (!_taken) _found.m3uFiles.push_back(std::move(path));
}

void EnumAccumulator::addUnseen(UnseenFolder folder) {
  const MutexLock lock(_lock);
  if (!_taken) _found.unseen.push_back(std::move(folder));
}

void EnumAccumulator::noteProgress() noexcept {
  _lastProgressTime.store(Clock::now().time_since_epoch().count(), std::memory_order_relaxed);
}

void EnumAccumulator::setHandingOver(bool handingOver) noexcept {
  if (!handingOver) noteProgress();
  _handingOver = handingOver;
}

EnumAccumulator::Clock::duration EnumAccumulator::stalledFor() const noexcept {
  if (_handingOver) return {};
  const Clock::duration then(_lastProgressTime.load(std::memory_order_relaxed));
  return Clock::now().time_since_epoch() - then;
}

FolderEnumResult EnumAccumulator::take() {
  const MutexLock lock(_lock);
  _taken = true;
  return std::exchange(_found, {});
}

}  // namespace velorin
