#include "library/artwork/ArtworkCaching.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <taglib/flacfile.h>
#include <unistd.h>

#include <fstream>

#include "foundation/Log.h"
#include "foundation/Preferences.h"
#include "library/TestLibrary.h"
#include "library/artwork/ArtworkCacheManager.h"
#include "platform/images/ImageDecoder.h"
#include "support/FlacFixture.h"
#include "support/PictureFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;

class ArtworkCachingTest : public ::testing::Test {
 protected:
  std::size_t cacheArtwork() {
    return ArtworkCaching(_library.database(), _cache)
        .cacheArtwork([this](const std::string& text) { _statuses.push_back(text); },
                      [this] { return _isCancelled.load(); });
  }

  /// An album with a track; returns its id.
  std::int64_t addAlbum(const std::string& title, const fs::path& trackPath,
                        const std::optional<std::string>& artworkPath) {
    _library.add({.album = title, .path = trackPath.string()});
    _library.run("UPDATE albums SET artworkPath = ? WHERE title = ?", artworkPath, title);
    return _library.value<std::int64_t>("SELECT id FROM albums WHERE title = ?", title);
  }
  std::int64_t addWithFile(const std::string& title, const test::Bytes& picture) {
    const std::string path = (_folder / (title + ".jpg")).string();
    test::writeBytes(path, picture);
    return addAlbum(title, "/music/" + title + ".flac", path);
  }
  std::int64_t addWithEmbedded(const std::string& title, const test::Bytes& picture) {
    const fs::path path = _folder / (title + ".flac");
    test::FlacFixture::make({.frames = 100}).write(path);
    TagLib::FLAC::File file(path.c_str());
    auto* block = new TagLib::FLAC::Picture;
    block->setData(
        {reinterpret_cast<const char*>(picture.data()), static_cast<unsigned>(picture.size())});
    file.addPicture(block);
    file.save();
    return addAlbum(title, path, std::nullopt);
  }

  test::TemporaryFolder _folder;
  test::TestLibrary _library;
  ArtworkCacheManager _cache{_folder / "data"};
  std::vector<std::string> _statuses;
  std::atomic<bool> _isCancelled{false};
};

TEST_F(ArtworkCachingTest, EachAlbumGetsASmallPictureOnce) {
  const log::Capture log;
  const auto large = addWithFile("large", test::jpegOf(test::gradient(3000, 3000)));
  const auto small = addWithFile("small", test::pngOf(test::gradient(300, 200)));
  const auto inside = addWithEmbedded("inside", test::jpegOf(test::gradient(600, 300)));
  const auto broken = addWithFile("broken", {0xff, 0xd8, 0xff, 0xe0});
  addAlbum("bare", "/music/absent.flac", std::nullopt);
  EXPECT_EQ(cacheArtwork(), 3U);
  EXPECT_EQ(_statuses, std::vector<std::string>{"Caching artwork…"});
  EXPECT_TRUE(log.contains("🎨 Post-scan artwork caching…"));
  EXPECT_TRUE(log.contains("🎨 Artwork caching complete: 3 albums cached in "));
  EXPECT_TRUE(log.contains("broken.jpg: the picture is cut short"));
  struct {
    std::int64_t album;
    int width, height;
  } const expected[]{{large, 512, 512}, {small, 300, 200}, {inside, 512, 256}};
  for (const auto& e : expected) {
    const auto cached = decodeImageFile(_cache.cachedImagePath(e.album), 9999);
    ASSERT_TRUE(cached) << cached.error().reason;
    EXPECT_EQ(cached->width, e.width);
    EXPECT_EQ(cached->height, e.height);
    EXPECT_LT(test::differenceOf(cached.value(), test::gradient(e.width, e.height)).mean, 3);
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(_cache.cacheDirectory()), {}), 4)
      << "pictures, and the table of their sources";

  // Now that the sources are gone, another pass would fail where it read them; what was broken and
  // is mended is taken in.
  for (const char* name : {"large.jpg", "small.jpg", "inside.flac"}) fs::remove(_folder / name);
  test::writeBytes((_folder / "broken.jpg").string(), test::jpegOf(test::gradient(5, 5)));
  const log::Capture second;
  EXPECT_EQ(cacheArtwork(), 1U);
  EXPECT_FALSE(second.contains("⚠️"));
  EXPECT_TRUE(_cache.hasCachedImage(broken));
  _cache.removeAll();
  EXPECT_FALSE(_cache.hasCachedImage(broken));
}

/// How many files of a folder were opened since the last time.
class Openings {
 public:
  explicit Openings(const fs::path& folder) : _events(::inotify_init1(IN_NONBLOCK)) {
    ::inotify_add_watch(_events, folder.c_str(), IN_OPEN);
  }
  ~Openings() { ::close(_events); }
  int count() const {
    int count = 0;
    alignas(inotify_event) std::array<char, 16'384> buffer;
    for (ssize_t size; (size = ::read(_events, buffer.data(), buffer.size())) > 0;) {
      for (ssize_t at = 0; at < size; ++count) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
    return count;
  }

 private:
  const int _events;
};

TEST_F(ArtworkCachingTest, OpensWhatHasNoPictureOnceUntilItChanges) {
  const log::Capture log;
  const auto jpeg = [](int side) { return test::jpegOf(test::gradient(side, side)); };
  const auto sideOf = [&](std::int64_t album) {
    const auto cached = decodeImageFile(_cache.cachedImagePath(album), 9999);
    return cached ? cached->width : 0;
  };
  const auto cover = addWithFile("cover", jpeg(10));
  addWithFile("broken", {1, 2, 3});
  addWithEmbedded("undecodable", {1, 2, 3});
  const auto bare = addAlbum("bare", _folder / "bare.flac", std::nullopt);
  test::FlacFixture::make({.frames = 100}).write(_folder / "bare.flac");
  addAlbum("text", _folder / "text.mp3", std::nullopt);
  test::writeBytes((_folder / "text.mp3").string(), {1, 2, 3});
  const Openings openings(_folder.path());
  EXPECT_EQ(cacheArtwork(), 1U);
  EXPECT_GT(openings.count(), 4);
  EXPECT_EQ(cacheArtwork(), 0U);
  EXPECT_EQ(openings.count(), 0);

  // Other pictures under the same names; the older time is that of a copy that kept it.
  _library.run("UPDATE albums SET accentColorHex = '#102030'");
  test::writeBytes((_folder / "cover.jpg").string(), jpeg(11));
  fs::last_write_time(_folder / "cover.jpg",
                      fs::file_time_type::clock::now() - std::chrono::years(1));
  addWithEmbedded("bare", jpeg(12));
  EXPECT_EQ(cacheArtwork(), 2U);
  EXPECT_EQ(sideOf(cover), 11);
  EXPECT_EQ(sideOf(bare), 12);
  EXPECT_EQ(_library.value<int>("SELECT count(*) FROM albums WHERE accentColorHex IS NULL"), 1);
  // A picture beside the file takes the place of the one inside.
  _library.run("UPDATE albums SET artworkPath = ? WHERE id = ?", (_folder / "cover.jpg").string(),
               bare);
  EXPECT_EQ(cacheArtwork(), 1U);
  EXPECT_EQ(sideOf(bare), 11);
  // What is gone for now takes no picture away, and is no news when it is back.
  fs::rename(_folder / "text.mp3", _folder / "away");
  test::writeBytes((_folder / "cover.jpg").string(), {1, 2, 3});
  EXPECT_EQ(cacheArtwork(), 0U);
  EXPECT_EQ(sideOf(cover), 11);

  // A damaged table costs one pass; an emptied cache is filled again.
  const std::string table = _cache.sourcesPath();
  const auto size = fs::file_size(table);
  for (const auto& damage : std::vector<std::function<void()>>{
           [&] { fs::resize_file(table, size - 1); }, [&] { fs::resize_file(table, 3); },
           [&] { std::fstream(table, std::ios::in | std::ios::out).seekp(30).put('x'); },
           [&] { _cache.removeAll(); }}) {
    openings.count();
    damage();
    cacheArtwork();
    EXPECT_GT(openings.count(), 0);
    cacheArtwork();
    EXPECT_EQ(openings.count(), 0);
    EXPECT_EQ(fs::file_size(table), size - 24) << "without the album that is away";
  }
}

TEST_F(ArtworkCachingTest, StopsWhenCancelledAndWarmsUpOnce) {
  const log::Capture log;
  Preferences preferences;
  for (int i = 0; i < 9; ++i) {
    addWithFile(fmt::format("album {}", i), test::jpegOf(test::gradient(9, 9)));
  }
  const ArtworkCaching caching(_library.database(), _cache);
  const auto isCancelled = [this] { return _isCancelled.load(); };
  _isCancelled = true;
  EXPECT_EQ(cacheArtwork(), 0U);
  caching.warmUp(preferences, isCancelled);
  EXPECT_FALSE(preferences.contains("ArtworkCacheWarmedUp"));
  _isCancelled = false;
  caching.warmUp(preferences, isCancelled);
  EXPECT_TRUE(log.contains("🎨 Artwork cache warmup complete: 9 albums in "));
  EXPECT_EQ(preferences.getBool("ArtworkCacheWarmedUp"), true);
  _cache.removeAll();
  caching.warmUp(preferences, isCancelled);
  EXPECT_FALSE(_cache.hasCachedImage(1));
}

TEST_F(ArtworkCachingTest, TheFolderIsMadeAndRepaired) {
  const log::Capture log;
  fs::create_directories(_folder / "other/artwork/old");
  ArtworkCacheManager cache(_folder / "other");
  EXPECT_FALSE(fs::exists(_folder / "other/artwork"));
  fs::remove(cache.cacheDirectory());
  EXPECT_TRUE(cache.cacheImage(7, test::gradient(1, 1)));
  EXPECT_TRUE(cache.hasCachedImage(7));
  std::ofstream(cache.cachedImagePath(8)).flush();
  EXPECT_FALSE(cache.hasCachedImage(8)) << "emptied by a power cut";
  fs::create_directory(cache.cachedImagePath(9));
  EXPECT_FALSE(cache.cacheImage(9, test::gradient(1, 1)));
  EXPECT_TRUE(log.contains("❌ Failed to cache artwork for album 9: Is a directory"));
}

}  // namespace
}  // namespace velorin
