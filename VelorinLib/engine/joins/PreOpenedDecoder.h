// The slot of the decoder that was opened ahead of its join and has not been read.
#pragma once

#include <string>
#include <utility>

#include "engine/files/TrackFiles.h"
#include "foundation/Mutex.h"

namespace velorin {

/// `preOpenedLock` and what it guards. Any thread but the render thread.
class PreOpenedDecoder {
 public:
  /// Empties the slot if it holds that file; without a decoder otherwise.
  OpenedTrack take(const std::string& path) EXCLUDES(_preOpenedLock) {
    MutexLock hold(_preOpenedLock);
    return path == _path ? std::exchange(_opened, {}) : OpenedTrack{};
  }

  bool holds(const std::string& path) const EXCLUDES(_preOpenedLock) {
    MutexLock hold(_preOpenedLock);
    return _opened.decoder != nullptr && path == _path;
  }

  /// Fills the slot and returns what it held: closing a file may block, so it is the caller's.
  OpenedTrack put(std::string path, OpenedTrack opened) EXCLUDES(_preOpenedLock) {
    MutexLock hold(_preOpenedLock);
    _path = std::move(path);
    return std::exchange(_opened, std::move(opened));
  }

 private:
  mutable Mutex _preOpenedLock;
  std::string _path GUARDED_BY(_preOpenedLock);
  OpenedTrack _opened GUARDED_BY(_preOpenedLock);
};

}  // namespace velorin
