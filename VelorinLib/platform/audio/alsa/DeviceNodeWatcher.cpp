#include "platform/audio/alsa/DeviceNodeWatcher.h"

#include <limits.h>
#include <pthread.h>
#include <sys/inotify.h>

#include <array>
#include <cstring>

namespace velorin {
namespace {

constexpr std::uint32_t kNodeEvents = IN_CREATE | IN_DELETE | IN_ATTRIB | IN_DELETE_SELF;
constexpr std::uint32_t kParentEvents = IN_CREATE | IN_MOVED_TO;
constexpr int kQuietTime = 150;  // ms

}  // namespace

DeviceNodeWatcher::DeviceNodeWatcher(std::filesystem::path folder, std::function<void()> changed)
    : _folder(std::move(folder)),
      _changed(std::move(changed)),
      _inotify(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  if (_inotify < 0) return;
  watch();
  _thread = std::thread([this] { run(); });
  pthread_setname_np(_thread.native_handle(), "alsa.hotplug");
}

DeviceNodeWatcher::~DeviceNodeWatcher() {
  _ending.set();
  if (_thread.joinable()) _thread.join();
  if (_inotify >= 0) close(_inotify);
}

// The parent is watched only while the folder is missing: /dev is a busy place.
void DeviceNodeWatcher::watch() {
  const auto watchFolder = [this] {
    _folderWatch = inotify_add_watch(_inotify, _folder.c_str(), kNodeEvents);
    return _folderWatch >= 0;
  };
  if (_folderWatch < 0 && !watchFolder()) {
    if (_parentWatch < 0) {
      _parentWatch = inotify_add_watch(_inotify, _folder.parent_path().c_str(), kParentEvents);
    }
    watchFolder();  // it may have come between the two
  }
  if (_folderWatch >= 0 && _parentWatch >= 0) {
    inotify_rm_watch(_inotify, std::exchange(_parentWatch, -1));
  }
}

// True when something happened that may have changed the devices.
bool DeviceNodeWatcher::readEvents() {
  alignas(inotify_event) std::array<char, 16 * (sizeof(inotify_event) + NAME_MAX + 1)> buffer;
  bool hasNews = false;
  for (;;) {
    const ssize_t size = read(_inotify, buffer.data(), buffer.size());
    if (size <= 0) return hasNews;
    for (ssize_t at = 0; at < size;) {
      inotify_event event;
      std::memcpy(&event, buffer.data() + at, sizeof event);
      const char* name = event.len > 0 ? buffer.data() + at + sizeof event : "";
      at += static_cast<ssize_t>(sizeof event + event.len);
      if (event.wd == _folderWatch) {
        hasNews = true;
        if (event.mask & IN_IGNORED) _folderWatch = -1;
      } else if (event.wd == _parentWatch && _folder.filename() == name) {
        hasNews = true;
      }
    }
  }
}

void DeviceNodeWatcher::run() {
  std::array<pollfd, 2> both = {pollfd{_ending.fd(), POLLIN, 0}, pollfd{_inotify, POLLIN, 0}};
  for (bool isPending = false;;) {
    const int ready = poll(both.data(), both.size(), isPending ? kQuietTime : -1);
    if (ready < 0 && errno != EINTR) return;
    if (ready > 0 && both[0].revents != 0) return;
    if (ready > 0 && both[1].revents != 0) {
      if (readEvents()) isPending = true;
      watch();
    } else if (ready == 0 && isPending) {
      isPending = false;
      _changed();
    }
  }
}

}  // namespace velorin
