#include "platform/files/MountWatcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "foundation/Log.h"
#include "foundation/ThreadName.h"

namespace velorin {
namespace {

/// The mounts of one table that the other does not have.
std::vector<Mount> without(const MountTable& table, const MountTable& other) {
  std::vector<Mount> rest;
  for (const Mount& each : table.mounts()) {
    if (std::ranges::find(other.mounts(), each) == other.mounts().end()) rest.push_back(each);
  }
  return rest;
}

}  // namespace

MountWatcher::MountWatcher(OnChanges onChanges) : _onChanges(std::move(onChanges)) {
  _mountInfo = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
  _stop = ::eventfd(0, EFD_CLOEXEC);
  if (_mountInfo < 0 || _stop < 0) {
    log::line("⚠️ Mounted volumes cannot be watched: {}", std::strerror(errno));
    return;
  }
  // After opening: the descriptor reports what changes from that moment on.
  _known = MountTable::current();
  _thread = std::thread([this] { run(); });
}

MountWatcher::~MountWatcher() {
  if (_thread.joinable()) {
    ::eventfd_write(_stop, 1);
    _thread.join();
  }
  if (_mountInfo >= 0) ::close(_mountInfo);
  if (_stop >= 0) ::close(_stop);
}

void MountWatcher::run() {
  nameThisThread("com.velorin.mounts");
  pollfd waits[] = {{_mountInfo, POLLPRI, 0}, {_stop, POLLIN, 0}};
  while (true) {
    if (::poll(waits, 2, -1) < 0 && errno != EINTR) return;
    if (waits[1].revents != 0) return;
    if (waits[0].revents == 0) continue;
    MountTable now = MountTable::current();
    const Changes changes{without(now, _known), without(_known, now)};
    _known = std::move(now);
    if (!changes.added.empty() || !changes.removed.empty()) _onChanges(changes);
  }
}

}  // namespace velorin
