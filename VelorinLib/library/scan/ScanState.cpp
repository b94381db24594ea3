#include "library/scan/ScanState.h"

#include <cmath>

namespace velorin {

std::size_t batchSize(std::size_t batchesFlushed) noexcept {
  struct Step {
    std::size_t until;
    std::size_t size;
  };
  static constexpr Step kRamp[]{{15, 10}, {25, 20}, {35, 50}, {45, 100}, {55, 500}};
  for (const Step& step : kRamp) {
    if (batchesFlushed < step.until) return step.size;
  }
  return 1000;
}

ScanState::ScanState(Known known, FindArtwork findArtwork)
    : _known(std::move(known)), _findArtwork(std::move(findArtwork)) {}

bool ScanState::isCueProcessed(const std::string& path, double modified) const {
  const auto entry = _known.processedCues.find(path);
  return entry != _known.processedCues.end() && std::abs(entry->second - modified) < 0.001;
}

std::optional<std::string> ScanState::artwork(const std::string& folder) {
  {
    const MutexLock lock(_lock);
    const auto entry = _artworkCache.find(folder);
    if (entry != _artworkCache.end()) return entry->second;
  }
  std::optional<std::string> found = _findArtwork(folder);
  const MutexLock lock(_lock);
  return _artworkCache.insert_or_assign(folder, std::move(found)).first->second;
}

std::optional<std::vector<ScannedItem>> ScanState::append(ScannedItem item) {
  const MutexLock lock(_lock);
  _buffer.push_back(std::move(item));
  if (_buffer.size() < batchSize(_batchesFlushed)) return std::nullopt;
  ++_batchesFlushed;
  return std::exchange(_buffer, {});
}

std::vector<ScannedItem> ScanState::takeAll() {
  const MutexLock lock(_lock);
  return std::exchange(_buffer, {});
}

void ScanState::claimForCue(std::string audioPath) {
  const MutexLock lock(_lock);
  _cueAudioFiles.insert(std::move(audioPath));
}

bool ScanState::isClaimedByCue(const std::string& audioPath) const {
  const MutexLock lock(_lock);
  return _cueAudioFiles.contains(audioPath);
}

std::vector<std::string> ScanState::cueAudioFiles() const {
  const MutexLock lock(_lock);
  return {_cueAudioFiles.begin(), _cueAudioFiles.end()};
}

}  // namespace velorin
