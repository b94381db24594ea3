#include "library/scan/ScanState.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "library/metadata/FileName.h"

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
    : _known(std::move(known)), _findArtwork(std::move(findArtwork)) {
  _known.existingKeys.forEachCue([this](std::string_view path) { _hadCueTracks.emplace(path); });
  for (const std::string& sheet : _known.vanishedSheets) {
    _foldersToReadAgain.emplace(parentFolder(sheet));
  }
}

bool ScanState::replacesCueTracks(const std::string& sheet, const std::string& audioPath) const {
  return hadCueTracks(audioPath) &&
         (_known.processedCues.contains(sheet) || !_known.vanishedSheets.empty());
}

void ScanState::forgetCue(const std::string& path) {
  const MutexLock lock(_lock);
  _forgottenCues.insert(path);
}

bool ScanState::hadCueTracks(const std::string& audioPath) const {
  return _hadCueTracks.contains(audioPath);
}

bool ScanState::isCueProcessed(const std::string& path, double modified) const {
  if (_foldersToReadAgain.contains(std::string(parentFolder(path)))) return false;
  {
    const MutexLock lock(_lock);
    if (_forgottenCues.contains(path)) return false;
  }
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

std::optional<std::vector<ScannedItem>> ScanState::append(std::vector<ScannedItem> items) {
  const MutexLock lock(_lock);
  std::ranges::move(items, std::back_inserter(_buffer));
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

bool ScanState::takeCueTracksOf(const std::string& audioPath) {
  const MutexLock lock(_lock);
  return _cueTracksTaken.insert(audioPath).second;
}

bool ScanState::isClaimedByCue(const std::string& audioPath) const {
  const MutexLock lock(_lock);
  return _cueAudioFiles.contains(audioPath);
}

void ScanState::noteUnreadableSheet(const std::string& sheet) {
  const MutexLock lock(_lock);
  _foldersOfUnreadable.emplace_back(parentFolder(sheet));
}

bool ScanState::mayBeClaimedByUnreadable(const std::string& audioPath) const {
  const MutexLock lock(_lock);
  return std::ranges::any_of(_foldersOfUnreadable,
                             [&](const PathPrefix& folder) { return folder.contains(audioPath); });
}

std::vector<std::string> ScanState::cueAudioFiles() const {
  const MutexLock lock(_lock);
  return {_cueAudioFiles.begin(), _cueAudioFiles.end()};
}

}  // namespace velorin
