#include <csignal>
#include <cstdio>
#include <exception>
#include <variant>

#include "Commands.h"
#include "Console.h"
#include "Terminal.h"
#include "foundation/MainThread.h"

namespace {

using namespace velorin;

int show(const ShowText& text) {
  return std::fputs(text.text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0 ? kExitSuccess
                                                                                : kExitFailure;
}

int refuse(const WrongUsage& usage) {
  reportError(usage.text);
  return kExitWrongUsage;
}

struct Run {
  int operator()(const RunOptions& options) const { return runPlayer(options); }
  int operator()(const ControlOptions& options) const { return runControl(options); }
  int operator()(const PlayOptions& options) const { return runPlay(options); }
  int operator()(const RenderOptions& options) const { return runRender(options); }
  int operator()(const DevicesOptions& options) const { return runDevices(options); }
  int operator()(const InfoOptions& options) const { return runInfo(options); }
  int operator()(const SearchOptions& options) const { return runSearch(options); }
  int operator()(const LibraryListOptions& options) const { return runLibraryList(options); }
  int operator()(const LibraryFoldersOptions& options) const { return runLibraryFolders(options); }
  int operator()(const ScanOptions& options) const { return runScan(options); }
  int operator()(const PlaylistOptions& options) const { return runPlaylist(options); }
  int operator()(const DspOptions& options) const { return runDsp(options); }
  int operator()(const TagOptions& options) const { return runTag(options); }
  int operator()(const ShowText& text) const { return show(text); }
  int operator()(const WrongUsage& usage) const { return refuse(usage); }
};

}  // namespace

int main(int argc, char** argv) {
  // A reader of our output that goes away, and a file that reaches its size limit, show as failed
  // writes.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  velorin::terminal::useUTF8();
  velorin::MainThread::instance();
  try {
    return std::visit(Run{}, velorin::parseCommandLine(argc, argv));
  } catch (const std::exception& error) {
    velorin::reportError(std::string(error.what()) + ": please report this as a bug");
    return velorin::kExitFailure;
  }
}
