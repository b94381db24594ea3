// A scanner over real folders and a real database, with an extractor that can be held up.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <future>

#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Preferences.h"
#include "foundation/Text.h"
#include "library/TestLibrary.h"
#include "library/queries/MusicFolders.h"
#include "library/scan/LibraryScanner.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {

using namespace std::chrono_literals;

/// Takes any content for music; fails for names that begin with "bad".
class FakeExtractor : public MetadataExtracting {
 public:
  Result<ScannedItem, ExtractFailure> extract(const std::string& path,
                                              const std::vector<std::string>&,
                                              const ArtworkLookup&) const override {
    if (onExtract) onExtract();
    const std::string name = path.substr(path.rfind('/') + 1);
    struct stat status {};
    if (name.starts_with("bad") || ::stat(path.c_str(), &status) != 0) {
      return ExtractFailure{"it is bad"};
    }
    ScannedItem item;
    item.artistName = "Artist";
    item.albumTitle = "Album";
    item.track.title = text::toValidUTF8(name);
    item.track.filePath = path;
    item.track.fileSize = status.st_size;
    item.track.lastModified =
        std::chrono::system_clock::time_point(std::chrono::seconds(status.st_mtim.tv_sec) +
                                              std::chrono::nanoseconds(status.st_mtim.tv_nsec));
    return item;
  }

  std::function<void()> onExtract;
};

class FakeVolumes : public VolumeResolving {
 public:
  Availability availability(const std::vector<std::string>& folders, bool) override {
    Availability result;
    for (const std::string& folder : folders) {
      (folder == offline ? result.offline : result.available).push_back(folder);
    }
    return result;
  }
  bool isLocalVolume(const std::string&) override { return true; }
  bool ensureAccess(const std::string&) override { return true; }

  std::string offline;
};

/// Main thread.
class ScanFixture : public ::testing::Test {
 protected:
  ScanFixture() {
    settings.watchRound = 5ms;
    settings.debounce = 20ms;
    settings.cancelGrace = 50ms;
  }

  std::string path(const std::string& name) const { return (folder / name).native(); }

  std::string write(const std::string& name, const std::string& content = "music") const {
    const std::string file = path(name);
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::ofstream(file) << content;
    return file;
  }
  void writeMany(const std::string& in, int count) const {
    for (int i = 0; i < count; ++i) write(fmt::format("{}/{:04}.flac", in, i));
  }

  ::velorin::ScanParts parts() {
    return {.database = library.database(),
            .removal = removal,
            .events = events,
            .preferences = preferences,
            .throttle = throttle,
            .extractor = extractor,
            .findArtwork = [](const auto&) { return std::nullopt; }};
  }
  LibraryScanner& scanner() {
    if (!_scanner) {
      _scanner = std::make_unique<LibraryScanner>(
          LibraryScanner::Parts{.scan = parts(),
                                .hooks = {},
                                .volumes = resolving(),
                                .followVolumes = [this] { followVolumes(); },
                                .warmUpArtwork = {}},
          settings);
    }
    return *_scanner;
  }

  /// The next use makes another one.
  void endScanner() { _scanner.reset(); }
  virtual VolumeResolving& resolving() { return volumes; }
  virtual void followVolumes() {}

  bool untilIdle() {
    return MainThread::instance().runUntil([this] { return !scanner().scanState().isScanning(); },
                                           20s);
  }
  bool rescan() {
    scanner().rescan();
    return untilIdle();
  }
  /// Adds the folder and scans it.
  bool add(const std::string& name = "m") {
    std::filesystem::create_directories(path(name));
    MusicFolders(library.database()).addFolder(path(name));
    scanner().scan({path(name)});
    return untilIdle();
  }

  int count(const std::string& where = "1") {
    return library.value<int>("SELECT COUNT(*) FROM tracks WHERE " + where);
  }
  bool isMarked(const std::string& name) {
    return !MusicFolders(library.database()).getLastScanned(path(name));
  }

  TemporaryFolder folder;
  TestLibrary library;
  TrackRemoval removal{library.database()};
  EventBus events;
  LibraryUpdateThrottle throttle{events};
  Preferences preferences;
  FakeVolumes volumes;
  std::shared_ptr<FakeExtractor> extractor = std::make_shared<FakeExtractor>();
  ScanSettings settings;
  log::Capture log;

 private:
  std::unique_ptr<LibraryScanner> _scanner;
};

/// Holds a thread up until it is opened.
class Gate {
 public:
  void open() { _promise.set_value(); }
  void wait() const { _future.wait(); }

 private:
  std::promise<void> _promise;
  std::shared_future<void> _future = _promise.get_future().share();
};

}  // namespace velorin::test
