#include "ScanSession.h"

#include <fmt/format.h>
#include <malloc.h>
#include <unistd.h>

#include "Commands.h"
#include "LibraryText.h"
#include "ScanSummaryText.h"
#include "SignalWatch.h"
#include "Terminal.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

constexpr std::chrono::milliseconds kRedrawInterval{200};
/// Longest time from an interrupt to the end.
constexpr std::chrono::milliseconds kStopGrace{3000};
/// Problems of one kind that the summary names without --verbose.
constexpr std::size_t kMostNamed = 20;

/// Named in the summary, with its reason.
bool isToldAtTheEnd(std::string_view line) {
  return line.starts_with("⚠️ Extract failed: ");
}

std::string number(std::size_t value) {
  return groupedText(static_cast<std::int64_t>(value));
}

}  // namespace

ScanSession::ScanSession(Display display) : _display(display), _console(STDOUT_FILENO) {
  // What was freed goes back at once, and large blocks are mapped singly: of many workers' buffers
  // a scan of 200,000 files would keep 15 MB otherwise.
  ::mallopt(M_TRIM_THRESHOLD, 1 << 20);
  log::configure(display.verbose ? log::Level::info : log::Level::warning,
                 /*useJournalIfConnected=*/false);
  log::setSink([this](log::Level, std::string_view line) {
    if (_display.verbose || !isToldAtTheEnd(line)) _console.printError(line);
  });
}

ScanSession::~ScanSession() {
  log::setSink({});
}

int ScanSession::run(LibraryServices& services,
                     const std::function<void(LibraryScanner&)>& request) {
  MainThread& loop = MainThread::instance();
  _scanner = &services.scanner();
  request(*_scanner);
  _scanner->scanState().setObserver([this, &loop] {
    if (!_scanner->scanState().isScanning()) loop.stop();
  });
  RepeatingTimer redraw;
  if (_console.isInteractive()) redraw.start(kRedrawInterval, [this] { refresh(); });
  {
    const SignalWatch signals(
        {.stop =
             [this, &loop] {
               _stopping = true;
               refresh();
               _scanner->cancel();
               loop.postAfter(kStopGrace, [] {
                 reportError(
                     "the scan does not stop: a file or folder does not answer; ended without it");
                 ::_exit(kExitFailure);
               });
             },
         .suspend = [this] { _console.clearStatus(); },
         .resume = [this] { refresh(); }});
    loop.run();
  }
  redraw.stop();
  _console.clearStatus();
  _scanner->scanState().setObserver({});
  return summarise(_scanner->lastSummary());
}

void ScanSession::refresh() {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::seconds kSpeedInterval{1};
  const ScanFigures figures = _scanner->figures();
  const std::size_t done = figures.inserted + figures.existing + figures.failed;
  const auto now = Clock::now();
  if (_lookedAt == Clock::time_point{}) {
    _lookedAt = now;
  } else if (now - _lookedAt >= kSpeedInterval) {
    _perSecond = static_cast<double>(done - std::min(done, _done)) /
                 std::chrono::duration<double>(now - _lookedAt).count();
    _done = done;
    _lookedAt = now;
  }
  std::string status = fmt::format("{} found · {} imported", number(figures.discovered),
                                   number(figures.inserted - figures.withdrawn));
  if (figures.failed > 0) status += fmt::format(" · {} failed", number(figures.failed));
  if (_perSecond >= 1) {
    status += fmt::format(" · {} files/s", number(static_cast<std::size_t>(_perSecond)));
  }
  status += " · ";
  status += _stopping ? "stopping…" : text::escapeForTerminal(_scanner->scanState().statusText());
  _console.setStatus(terminal::fitted(status, _console.columns()));
}

int ScanSession::summarise(const ScanSummary& summary) {
  for (const std::string& line :
       problemLines(summary, _display.verbose ? ScanReport::kMostNamed : kMostNamed)) {
    _console.printError("velorin: " + line);
  }
  _console.print(_display.json ? json(summary).line() : summaryLine(summary));
  return hasSucceeded(summary) ? kExitSuccess : kExitFailure;
}

}  // namespace velorin
