// The slot of the decoder that was opened ahead of its join and has not been read.
#pragma once

#include <memory>
#include <string>

#include "engine/decoders/FillThreadDecoder.h"
#include "foundation/Mutex.h"

namespace velorin {

/// `preOpenedLock` and what it guards. Any thread but the render thread.
class PreOpenedDecoder {
 public:
  /// Empties the slot if it holds that file; null otherwise.
  std::unique_ptr<FileDecoder> take(const std::string& path) EXCLUDES(_preOpenedLock) {
    MutexLock hold(_preOpenedLock);
    return path == _path ? std::move(_decoder) : nullptr;
  }

  bool holds(const std::string& path) const EXCLUDES(_preOpenedLock) {
    MutexLock hold(_preOpenedLock);
    return _decoder != nullptr && path == _path;
  }

  /// Fills the slot and returns what it held: closing a file may block, so it is the caller's.
  std::unique_ptr<FileDecoder> put(std::string path, std::unique_ptr<FileDecoder> decoder)
      EXCLUDES(_preOpenedLock) {
    MutexLock hold(_preOpenedLock);
    _path = std::move(path);
    return std::exchange(_decoder, std::move(decoder));
  }

 private:
  mutable Mutex _preOpenedLock;
  std::string _path GUARDED_BY(_preOpenedLock);
  std::unique_ptr<FileDecoder> _decoder GUARDED_BY(_preOpenedLock);
};

}  // namespace velorin
