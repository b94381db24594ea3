#include "library/artwork/AccentColor.h"

#include <gtest/gtest.h>

#include "library/TestLibrary.h"
#include "library/artwork/AccentColorManager.h"
#include "library/artwork/ArtworkCacheManager.h"
#include "library/artwork/ThumbnailCache.h"
#include "library/queries/AlbumArtwork.h"
#include "support/PictureFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

TEST(AccentColor, DominantColourWithinLimits) {
  struct {
    std::uint8_t red, green, blue;
    std::optional<HSBColor> accent;
  } const cases[]{
      {128, 128, 128, {}},
      {255, 255, 255, {}},
      {37, 0, 0, {}},                                 // below a brightness of 0.15
      {255, 210, 210, {}},                            // below a saturation of 0.2
      {0, 0, 64, HSBColor{2.0 / 3, 1, 0.4}},          // very dark blue
      {255, 255, 190, HSBColor{1.0 / 6, 0.5, 0.75}},  // pale yellow
      {153, 0, 77, HSBColor{0.9161, 1, 0.6}},
  };
  for (const auto& c : cases) {
    const auto accent = accentColorOf(test::flat(300, 200, c.red, c.green, c.blue));
    ASSERT_EQ(accent.has_value(), c.accent.has_value()) << int{c.red};
    if (!accent) continue;
    EXPECT_NEAR(accent->h, c.accent->h, 0.005);
    EXPECT_NEAR(accent->s, c.accent->s, 0.005);
    EXPECT_NEAR(accent->b, c.accent->b, 0.005);
  }
}

TEST(AccentColor, CountWeighsAgainstSaturation) {
  // Full red on 40 % of the cover scores 0.4 * 1.5; a green of saturation 0.3 on the rest 0.6 *
  // 0.8.
  Bitmap cover = test::flat(320, 320, 178, 255, 178);
  for (int y = 0; y < 128; ++y) {
    for (int x = 0; x < 320; ++x) {
      cover.row(y)[3 * x] = 255;
      cover.row(y)[3 * x + 1] = cover.row(y)[3 * x + 2] = 0;
    }
  }
  EXPECT_NEAR(accentColorOf(cover)->h, 0, 0.01);
  EXPECT_EQ(accentColorOf(test::flat(9, 9, 0, 255, 0)), (HSBColor{1.0 / 3, 1, 0.75}));
}

TEST(AccentColor, StoredForm) {
  EXPECT_EQ(accentHex({1.0 / 3, 1, 0.75}), "#00BF00");
  EXPECT_EQ(accentHex({0.9, 0.5, 0.4}), "#663352");
  EXPECT_EQ(accentFromHex("#000040"), (HSBColor{2.0 / 3, 1, 0.4}));
  for (const char* text : {"", "#12345", "1234567", "#12345G", "#1234567"}) {
    EXPECT_EQ(accentFromHex(text), std::nullopt) << text;
  }
  for (const char* text : {"#663352", "#00BF00", "#BF6060"}) {
    EXPECT_EQ(accentHex(*accentFromHex(text)), text);
  }
}

/// A main thread on which time passes when the test says so.
class AccentColorManagerTest : public ::testing::Test {
 protected:
  AccentColorManager::MainLoop mainLoop() {
    return {[this](AccentColorManager::Task task) {
              const MutexLock lock(_lock);
              _posted.push_back(std::move(task));
              _arrived.notifyOne();
            },
            [this](std::chrono::milliseconds delay, AccentColorManager::Task task) {
              EXPECT_EQ(delay, std::chrono::milliseconds(200));
              _delayed.push_back(std::move(task));
            }};
  }
  void letTimePass() {
    for (const auto& task : std::exchange(_delayed, {})) task();
  }
  /// Waits for a result of the other thread.
  AccentColorManager::Task nextPosted() {
    const MutexLock lock(_lock);
    while (_posted.empty()) _arrived.wait(_lock);
    const auto task = std::move(_posted.front());
    _posted.erase(_posted.begin());
    return task;
  }
  std::int64_t addAlbum(const std::string& title) {
    _library.add({.album = title});
    return _library.value<std::int64_t>("SELECT id FROM albums WHERE title = ?", title);
  }

  test::TemporaryFolder _folder;
  test::TestLibrary _library;
  ArtworkCacheManager _artwork{_folder.path()};
  Mutex _lock;
  ConditionVariable _arrived;
  std::vector<AccentColorManager::Task> _posted GUARDED_BY(_lock);
  std::vector<AccentColorManager::Task> _delayed;
};

TEST_F(AccentColorManagerTest, FollowsTheAlbumThatStays) {
  const auto first = addAlbum("first");
  const auto green = addAlbum("green");
  const auto stored = addAlbum("stored");
  const auto bare = addAlbum("bare");
  const AlbumArtwork albums(_library.database());
  _artwork.cacheImage(first, test::flat(9, 9, 255, 0, 0));
  _artwork.cacheImage(green, test::flat(9, 9, 0, 255, 0));
  albums.setAlbumAccentColor(stored, "#0000BF");
  int changes = 0;
  {
    AccentColorManager manager(_library.database(), _artwork, mainLoop());
    manager.setObserver([&] { ++changes; });
    // Three within the time: one extraction.
    manager.update(first);
    manager.update(bare);
    manager.update(green);
    EXPECT_EQ(manager.currentAccent(), std::nullopt);
    letTimePass();
    nextPosted()();
    ASSERT_TRUE(manager.currentAccent());
    EXPECT_NEAR(manager.currentAccent()->h, 1.0 / 3, 0.01);
    EXPECT_EQ(changes, 1);

    manager.update(stored);
    letTimePass();
    nextPosted()();
    EXPECT_EQ(manager.currentAccent(), (HSBColor{2.0 / 3, 1, 191 / 255.0}));

    // A result that comes after the next change is dropped.
    manager.update(first);
    letTimePass();
    const auto late = nextPosted();
    manager.update(bare);
    late();
    EXPECT_EQ(changes, 2);
    letTimePass();
    nextPosted()();
    EXPECT_EQ(manager.currentAccent(), std::nullopt);

    // What is known needs neither picture nor library.
    std::filesystem::remove(_artwork.cachedImagePath(green));
    manager.update(green);
    letTimePass();
    EXPECT_NEAR(manager.currentAccent()->h, 1.0 / 3, 0.01);
    manager.update(std::nullopt);
    letTimePass();
    EXPECT_EQ(manager.currentAccent(), std::nullopt);
    EXPECT_EQ(changes, 5);
    manager.update(first);
  }
  letTimePass();  // after its end
  const std::string hex = albums.albumAccentColor(green).value_or("");
  EXPECT_EQ(accentFromHex(hex)->b, 191 / 255.0) << hex;
  EXPECT_EQ(albums.albumAccentColor(first), std::nullopt);
}

TEST(ThumbnailCache, DropsTheOldestBeyondItsLimits) {
  const auto image = [](int side) {
    return std::make_shared<const Bitmap>(Bitmap::ofSize(side, side));
  };
  ThumbnailCache cache;
  for (int album = 0; album < 500; ++album) cache.setImage(album, 32, image(1));
  EXPECT_TRUE(cache.image(0, 32)) << "and it is the latest now";
  cache.setImage(500, 32, image(1));
  EXPECT_EQ(cache.count(), 500U);
  EXPECT_TRUE(cache.image(0, 32));
  EXPECT_FALSE(cache.image(1, 32));
  cache.setImage(0, 512, image(3620));  // 52,417,600 of 52,428,800
  EXPECT_EQ(cache.count(), 500U);
  cache.setImage(0, 400, image(100));
  EXPECT_FALSE(cache.image(0, 512)) << "the older ones together cost too little";
  EXPECT_EQ(ThumbnailCache::key(12, 300), "album-12-300");
}

TEST(ThumbnailCache, AnAlbumIsInvalidInAllSizes) {
  ThumbnailCache cache;
  int changes = 0;
  cache.setGenerationObserver([&] { ++changes; });
  for (const int size : ThumbnailCache::kSizes) {
    cache.setImage(1, size, std::make_shared<const Bitmap>(Bitmap::ofSize(size, size)));
    cache.setImage(11, size, std::make_shared<const Bitmap>(Bitmap::ofSize(1, 1)));
  }
  cache.invalidate(1);
  EXPECT_EQ(cache.count(), 12U);
  EXPECT_EQ(cache.totalCost(), 12U * 4U);
  EXPECT_EQ(cache.generation(), 1U);
  EXPECT_EQ(changes, 1);
  cache.removeAllObjects();
  EXPECT_FALSE(cache.image(11, 32));
  EXPECT_EQ(cache.totalCost(), 0U);
}

}  // namespace
}  // namespace velorin
