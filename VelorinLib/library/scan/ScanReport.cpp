#include "library/scan/ScanReport.h"

namespace velorin {
namespace {

void append(std::vector<std::string>& list, const std::vector<std::string>& more) {
  list.insert(list.end(), more.begin(), more.end());
}

}  // namespace

void ScanReport::addFailure(std::string path, std::string reason) {
  ++_failed;
  const MutexLock lock(_lock);
  if (_told.failures.size() < kMostNamed) {
    _told.failures.push_back({std::move(path), std::move(reason)});
  }
}

void ScanReport::addUnseen(const std::vector<UnseenFolder>& folders) {
  const MutexLock lock(_lock);
  _told.unseenCount += folders.size();
  for (const UnseenFolder& folder : folders) {
    if (_told.unseen.size() < kMostNamed) _told.unseen.push_back(folder);
  }
}

void ScanReport::addStalled(const std::vector<std::string>& folders) {
  const MutexLock lock(_lock);
  append(_told.stalled, folders);
  if (!folders.empty()) _stalled = true;
}

void ScanReport::addOffline(const std::vector<std::string>& folders) {
  const MutexLock lock(_lock);
  append(_told.offline, folders);
}

void ScanReport::addError(std::string text, std::size_t lost) {
  _lost += lost;
  const MutexLock lock(_lock);
  if (_told.errors.size() < kMostNamed) _told.errors.push_back(std::move(text));
}

ScanFigures ScanReport::figures() const noexcept {
  return {.discovered = _discovered,
          .inserted = _inserted,
          .deleted = _deleted,
          .withdrawn = _withdrawn,
          .existing = _existing,
          .failed = _failed,
          .lost = _lost};
}

ScanSummary ScanReport::summary() const {
  const MutexLock lock(_lock);
  ScanSummary summary = _told;
  summary.figures = figures();
  summary.cancelled = _cancelled;
  summary.seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
  return summary;
}

}  // namespace velorin
