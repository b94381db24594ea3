#include "foundation/Log.h"

// The place in our source is no field of a log line.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <sys/stat.h>
#include <sys/uio.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <utility>

#include "foundation/Mutex.h"
#include "foundation/Realtime.h"
#include "foundation/Text.h"

namespace velorin::log {

/// What a Capture has collected; kept alive by a writer that is just adding to it.
struct Capture::State {
  mutable Mutex mutex;
  mutable ConditionVariable added;
  std::vector<std::string> lines GUARDED_BY(mutex);

  bool containsLocked(std::string_view text) const REQUIRES(mutex) {
    return std::any_of(lines.begin(), lines.end(), [text](const std::string& line) {
      return line.find(text) != std::string::npos;
    });
  }
};

namespace {

using Sink = std::function<void(Level, std::string_view)>;

struct Router {
  std::atomic<Level> minimum{Level::info};
  std::atomic<bool> journal{false};

  Mutex sinkMutex;  // held while a sink runs, so that lines come one at a time
  Sink sink GUARDED_BY(sinkMutex);

  Mutex captureMutex;
  std::vector<std::shared_ptr<Capture::State>> captures GUARDED_BY(captureMutex);
};

// Never destroyed: other statics may log while the process ends.
Router& router() {
  static Router& instance = *new Router;
  return instance;
}

thread_local bool insideSink = false;

/// True when stderr is the stream that the service manager connected to the journal: it says so
/// by device and inode in $JOURNAL_STREAM, and a later redirection of stderr makes it untrue.
bool stderrIsJournal() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  if (stream == nullptr) return false;
  const std::string_view text = stream;
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) return false;
  unsigned long long device = 0;
  unsigned long long inode = 0;
  const auto number = [](std::string_view digits, unsigned long long& value) {
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return error == std::errc{} && end == digits.data() + digits.size();
  };
  if (!number(text.substr(0, colon), device) || !number(text.substr(colon + 1), inode)) {
    return false;
  }
  // A container may inherit the variable without the journal; sending would then drop lines.
  if (::access("/run/systemd/journal/socket", W_OK) != 0) return false;
  struct stat status {};
  return ::fstat(STDERR_FILENO, &status) == 0 && status.st_dev == device && status.st_ino == inode;
}

/// The syslog priority of a level, as journald stores it.
char priorityOf(Level level) noexcept {
  switch (level) {
    case Level::debug:
      return '7';
    case Level::info:
      return '6';
    case Level::warning:
      return '4';
    case Level::error:
      return '3';
  }
  return '6';
}

bool sendToJournal(Level level, std::string_view text) {
  std::string message = "MESSAGE=";
  message += text;
  std::string priority = "PRIORITY=";
  priority += priorityOf(level);
  std::string identifier = "SYSLOG_IDENTIFIER=velorin";
  const std::array<iovec, 3> fields{{{message.data(), message.size()},
                                     {priority.data(), priority.size()},
                                     {identifier.data(), identifier.size()}}};
  return sd_journal_sendv(fields.data(), static_cast<int>(fields.size())) == 0;
}

/// One write call per line, so that lines of several processes do not mix.
void sendToStderr(std::string_view text) {
  std::string line(text);
  line += '\n';
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;  // nobody is left to tell
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

void sendToDefault(Level level, std::string_view text) {
  if (router().journal.load(std::memory_order_relaxed) && sendToJournal(level, text)) return;
  sendToStderr(text);
}

std::shared_ptr<Capture::State> innermostCapture() {
  Router& r = router();
  MutexLock lock(r.captureMutex);
  return r.captures.empty() ? nullptr : r.captures.back();
}

}  // namespace

Level levelOf(std::string_view line) noexcept {
  if (line.starts_with("❌")) return Level::error;
  // U+26A0; the variation selector U+FE0F that asks for the coloured form may be missing.
  if (line.starts_with("\u26A0")) return Level::warning;
  return Level::info;
}

void configure(Level minimum, bool useJournalIfConnected) {
  setMinimumLevel(minimum);
  router().journal.store(useJournalIfConnected && stderrIsJournal(), std::memory_order_relaxed);
}

void setMinimumLevel(Level minimum) noexcept {
  router().minimum.store(minimum, std::memory_order_relaxed);
}

void write(Level level, std::string_view text) {
  assert(!realtime::active() && "the render thread never logs");
  Router& r = router();
  if (level < r.minimum.load(std::memory_order_relaxed)) return;
  std::string safe = text::escapeForTerminal(text);

  if (const auto capture = innermostCapture()) {
    MutexLock lock(capture->mutex);
    capture->lines.push_back(std::move(safe));
    capture->added.notifyAll();
    return;
  }
  if (insideSink) {
    sendToStderr(safe);
    return;
  }
  MutexLock lock(r.sinkMutex);
  if (!r.sink) {
    sendToDefault(level, safe);
    return;
  }
  insideSink = true;
  try {
    r.sink(level, safe);
  } catch (...) {
    sendToStderr(safe);
  }
  insideSink = false;
}

void setSink(Sink sink) {
  // The old sink is destroyed after the lock is given back: its captures may log.
  Router& r = router();
  MutexLock lock(r.sinkMutex);
  std::swap(r.sink, sink);
}

Capture::Capture() : _state(std::make_shared<State>()) {
  Router& r = router();
  MutexLock lock(r.captureMutex);
  r.captures.push_back(_state);
}

Capture::~Capture() {
  Router& r = router();
  MutexLock lock(r.captureMutex);
  std::erase(r.captures, _state);
}

std::vector<std::string> Capture::lines() const {
  MutexLock lock(_state->mutex);
  return _state->lines;
}

bool Capture::contains(std::string_view text) const {
  MutexLock lock(_state->mutex);
  return _state->containsLocked(text);
}

bool Capture::waitFor(std::string_view text, std::chrono::milliseconds timeout) const {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  MutexLock lock(_state->mutex);
  while (!_state->containsLocked(text)) {
    if (!_state->added.waitUntil(_state->mutex, deadline)) return _state->containsLocked(text);
  }
  return true;
}

}  // namespace velorin::log
