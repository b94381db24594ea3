// What the step after a scan does for the covers of a library.
#include <taglib/flacfile.h>

#include <fstream>
#include <stdexcept>

#include "bench/Bench.h"
#include "bench/LibraryFixture.h"
#include "bench/Memory.h"
#include "bench/MusicFile.h"
#include "foundation/Log.h"
#include "library/TestLibrary.h"
#include "library/artwork/ArtworkCacheManager.h"
#include "library/artwork/ArtworkCaching.h"
#include "library/artwork/FolderArtwork.h"
#include "platform/images/ImageDecoder.h"
#include "support/PictureFixture.h"

namespace velorin::bench {
namespace {

constexpr int kAlbums = 400;

/// A cover as it is sold: 1000 by 1000 with detail everywhere.
Bitmap photograph() {
  Bitmap image = test::gradient(1000, 1000);
  std::uint32_t noise = 1;
  for (std::uint8_t& value : image.pixels) {
    noise = noise * 1'664'525 + 1'013'904'223;
    value =
        static_cast<std::uint8_t>(std::clamp(value + static_cast<int>(noise >> 28) - 8, 0, 255));
  }
  return image;
}

/// A library of albums that each have a copy of the file, as their picture or as their track.
class Albums {
 public:
  Albums(const BenchFolder& folder, const std::filesystem::path& original, bool isPicture) {
    for (int i = 0; i < kAlbums; ++i) {
      const auto path = folder / (std::to_string(i) + original.extension().native()).c_str();
      std::filesystem::copy_file(original, path);
      _library.add({.album = std::to_string(i), .path = path.native()});
      if (isPicture) {
        _library.run("UPDATE albums SET artworkPath = ? WHERE title = ?", path.native(),
                     std::to_string(i));
      }
    }
  }

  void measure(BenchReport& report, const std::string& name, ArtworkCacheManager& cache) {
    const log::Capture quiet;
    const ArtworkCaching caching(_library.database(), cache);
    std::size_t cached = 0;
    const auto pass = [&] {
      cached = caching.cacheArtwork([](const std::string&) {}, [] { return false; });
    };
    const Took first = tookOf(pass);
    if (cached != kAlbums) throw std::runtime_error("not every album has its picture");
    report.add(name, 1000 * kAlbums / first.wall, "albums/s");
    report.add("    of one core", 1000 * kAlbums / first.processor, "albums/s");
    const Took again = tookOf(pass);
    report.add("    with nothing to do", 1000 * kAlbums / again.wall, "albums/s");
    cache.removeAll();
  }

 private:
  test::TestLibrary _library;
};

/// A library whose albums have no picture anywhere.
void measureWithoutPictures(BenchReport& report, ArtworkCacheManager& cache) {
  constexpr int kBare = 20'000;
  const BenchFolder folder;
  test::TestLibrary library;
  for (int i = 0; i < kBare; ++i) {
    const auto path = folder / (std::to_string(i) + ".mp3").c_str();
    std::ofstream(path).put(0);
    library.add({.album = std::to_string(i), .path = path.native()});
  }
  const ArtworkCaching caching(library.database(), cache);
  const auto pass = [&] { caching.cacheArtwork([](const std::string&) {}, [] { return false; }); };
  report.add("20,000 albums without a picture, first", tookOf(pass).wall / 1000, "s");
  report.add("    with nothing to do", tookOf(pass).wall / 1000, "s", atMost(0.2));
  cache.removeAll();
}

void writeFlacWithPicture(const std::filesystem::path& path, const test::Bytes& picture) {
  writeMusicFile(path, {.seconds = 10});
  TagLib::FLAC::File file(path.c_str());
  auto* block = new TagLib::FLAC::Picture;
  block->setMimeType("image/jpeg");
  block->setData(
      {reinterpret_cast<const char*>(picture.data()), static_cast<unsigned>(picture.size())});
  file.addPicture(block);
  if (!file.save()) throw std::runtime_error("cannot write the picture");
}

const Registration kArtwork("artwork", [](BenchReport& report) {
  const test::Bytes jpeg = test::jpegOf(photograph());
  const BenchFolder home;
  const log::Capture quiet;
  ArtworkCacheManager cache(home / "data");
  {
    const BenchFolder folder;
    test::writeBytes((home / "cover.jpg").string(), jpeg);
    Albums(folder, home / "cover.jpg", true)
        .measure(report, "1000x1000 JPEG beside the files", cache);
  }
  {
    const BenchFolder folder;
    writeFlacWithPicture(home / "track.flac", jpeg);
    Albums(folder, home / "track.flac", false).measure(report, "1000x1000 JPEG inside FLAC", cache);
  }
  measureWithoutPictures(report, cache);
  const BenchFolder folder;
  for (int i = 0; i < 15; ++i) std::ofstream(folder / fmt::format("{:02}.flac", i).c_str()).put(0);
  std::ofstream(folder / "cover.jpg").put(0);
  const std::string path = (folder / "").native();
  constexpr int kSearches = 5000;
  const double seconds = secondsOf(3, [&] {
    for (int i = 0; i < kSearches; ++i) keep(findArtwork(path));
  });
  report.add("a folder of 16 files searched", 1e6 * seconds / kSearches, "us");
});

const Registration kMemory("artwork memory", [](BenchReport& report) {
  const BenchFolder folder;
  struct Large {
    const char* name;
    void (*write)(const std::string& path, int width, int height);
  };
  for (const auto& [name, write] :
       {Large{"baseline JPEG", test::writeLargeJpeg}, Large{"PNG", test::writeLargePng}}) {
    const std::string path = (folder / name).string();
    write(path, 20'000, 20'000);
    forgetPeak();
    const double before = statusMB("VmRSS");
    const double seconds = secondsOf(1, [&] {
      if (!decodeImageFile(path, 512)) throw std::runtime_error("not decoded");
    });
    report.add(fmt::format("20000x20000 {}, more memory", name), statusMB("VmHWM") - before, "MB",
               atMost(16));
    report.add("    time", seconds, "s");
  }
});

}  // namespace
}  // namespace velorin::bench
