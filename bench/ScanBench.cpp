// A folder of music files becomes a library, and is looked at again.
//
// VELORIN_SCAN_FILES=200000 measures with so many files instead of 20,000.
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "bench/LibraryFixture.h"
#include "bench/Memory.h"
#include "bench/MusicFile.h"
#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Preferences.h"
#include "library/DatabaseManager.h"
#include "library/artwork/FolderArtwork.h"
#include "library/metadata/MetadataExtractor.h"
#include "library/scan/LibraryScanner.h"
#include "library/volumes/VolumeManager.h"
#include "support/MusicTree.h"

namespace velorin::bench {
namespace {

constexpr std::size_t kFiles = 20'000;

std::size_t filesToScan() {
  const char* const text = std::getenv("VELORIN_SCAN_FILES");
  return text == nullptr ? kFiles : std::strtoul(text, nullptr, 10);
}

/// False without the right to do so.
bool dropFileCaches() {
  ::sync();
  std::ofstream caches("/proc/sys/vm/drop_caches");
  caches << "3";
  return static_cast<bool>(caches.flush());
}

/// A new library over the folder.
class Scan {
 public:
  explicit Scan(const std::filesystem::path& music)
      : _library(openQuietly(_home / "library.sqlite")), _music(music.native()) {
    _library->folders().addFolder(_music);
  }

  ScanSummary addFolder() {
    return run([&](LibraryScanner& scanner) { scanner.scan({_music}); });
  }
  ScanSummary rescan() {
    return run([](LibraryScanner& scanner) { scanner.rescan(); });
  }

 private:
  template <class Request>
  ScanSummary run(Request&& request) {
    const log::Capture quiet;
    request(_scanner);
    if (!MainThread::instance().runUntil([&] { return !_scanner.scanState().isScanning(); },
                                         std::chrono::minutes(10))) {
      throw std::runtime_error("the scan did not end");
    }
    return _scanner.lastSummary();
  }

  BenchFolder _home;
  std::shared_ptr<DatabaseManager> _library;
  const std::string _music;
  EventBus _events;
  LibraryUpdateThrottle _throttle{_events};
  Preferences _preferences;
  VolumeManager _volumes{_preferences};
  LibraryScanner _scanner{{.scan = {.database = _library->database(),
                                    .removal = _library->removal(),
                                    .events = _events,
                                    .preferences = _preferences,
                                    .throttle = _throttle,
                                    .extractor = std::make_shared<MetadataExtractor>(),
                                    .findArtwork = &findArtwork},
                           .hooks = {},
                           .volumes = _volumes,
                           .followVolumes = {},
                           .warmUpArtwork = {}}};
};

void addRate(BenchReport& report, const std::string& name, std::size_t files, const Took& took,
             double target) {
  report.add(name, 1000 * static_cast<double>(files) / took.wall, "files/s", atLeast(target));
  report.add("    of processor time", 1000 * static_cast<double>(files) / took.processor,
             "files/s");
}

const Registration kScan("scan", [](BenchReport& report) {
  const std::size_t files = filesToScan();
  const BenchFolder folder;
  const std::filesystem::path music = folder / "music";
  test::writeMusicTree(files, music);
  const auto measure = [&](Scan& scan, bool isNew) {
    return tookOf([&] {
      const ScanFigures figures = (isNew ? scan.addFolder() : scan.rescan()).figures;
      if (figures.inserted != (isNew ? files : 0) || figures.discovered != files) {
        throw std::runtime_error("the scan is wrong");
      }
    });
  };
  const double before = statusMB("RssAnon");
  if (dropFileCaches()) {
    Scan scan(music);
    addRate(report, "new files, cold", files, measure(scan, true), 4'000);
  }
  Scan scan(music);
  double peak = 0;
  {
    const PeakWatch watch;
    addRate(report, "new files, warm", files, measure(scan, true), 6'000);
    peak = watch.peakMB();
  }
  measure(scan, false);
  std::vector<Took> unchanged;
  for (int i = 0; i < 5; ++i) unchanged.push_back(measure(scan, false));
  addRate(report, "unchanged files", files, medianOf(std::move(unchanged)), 100'000);
  // Without the mapped pages of the library's file, which are the kernel's to take back.
  report.add("own memory while files were new", peak, "MB", atMost(120));
  report.add("    before", before, "MB");
});

}  // namespace
}  // namespace velorin::bench
