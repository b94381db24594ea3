// The faults a test has ordered, and how often each operation was called.
#pragma once

#include <map>

#include "foundation/Mutex.h"
#include "platform/audio/virtual/VirtualAudioHardware.h"

namespace velorin {

/// Any thread but the render thread.
class VirtualScript {
 public:
  void failNext(VirtualOperation operation, AudioStatus status, int times);

  /// Counts a call; the status it is to fail with, or success.
  AudioStatus call(VirtualOperation operation);

  int callCount(VirtualOperation operation) const;

 private:
  struct Fault {
    AudioStatus status;
    int times = 0;
  };
  mutable Mutex _mutex;
  std::map<VirtualOperation, Fault> _faults GUARDED_BY(_mutex);
  std::map<VirtualOperation, int> _calls GUARDED_BY(_mutex);
};

}  // namespace velorin
