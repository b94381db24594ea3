#include "library/scan/LibraryUpdateThrottle.h"

#include "foundation/MainThread.h"
#include "records/Events.h"

namespace velorin {

void LibraryUpdateThrottle::libraryChanged() {
  {
    const MutexLock lock(_lock);
    const auto now = Clock::now();
    if (_lastPost && now - *_lastPost < _interval) return;
    _lastPost = now;
  }
  _events.postOnMain(LibraryDidUpdate{});
}

}  // namespace velorin
